"""The recording driver against the control channel, as a panel speaks it."""

import errno
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

ATTACH, SET, GET = 1, 2, 3
UNIT = 175
DRIVER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "recording_driver.py")


class RecordingDriverTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.socket_path = os.path.join(folder.name, "run", "com.sonavert.driver.vexil3")
        self.record_path = os.path.join(folder.name, "record")
        self.sequence = 0

    def start(self, *options):
        driver = subprocess.Popen([sys.executable, DRIVER, self.socket_path, self.record_path, *options],
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

        def end():
            driver.kill()
            driver.communicate()

        self.addCleanup(end)
        self.assertEqual(driver.stdout.readline(), "ready\n")
        return driver

    def connect(self):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.addCleanup(client.close)
        client.settimeout(5)
        client.connect(self.socket_path)
        return client

    def send(self, client, kind, number, length, payload=b""):
        self.sequence += 1
        client.send(struct.pack("<IIII", self.sequence, kind, number, length) + payload)

    def ask(self, client, kind, number, length=0, payload=b""):
        """(errno, data) of the answer."""
        self.send(client, kind, number, length, payload)
        reply = client.recv(100000)
        sequence, error, size = struct.unpack_from("<III", reply)
        self.assertEqual((sequence, size), (self.sequence, len(reply) - 12))
        return error, reply[12:]

    def attached(self):
        client = self.connect()
        self.assertEqual(self.ask(client, ATTACH, UNIT), (0, b""))
        return client

    def recorded(self):
        with open(self.record_path, encoding="ascii") as record:
            return [tuple(json.loads(line).values()) for line in record]

    def test_every_request_is_recorded_before_it_is_answered(self):
        self.start()
        client = self.attached()
        self.assertEqual(self.recorded(), [(ATTACH, UNIT, 0, "")])
        self.assertEqual(self.ask(client, SET, 191, 4, b"\x05\0\0\0"), (0, b""))
        self.assertEqual(self.ask(client, SET, 190), (0, b""))
        self.assertEqual(self.ask(client, GET, 202, 8192), (0, b"\0"))
        self.assertEqual(self.recorded()[1:], [(SET, 191, 4, "05000000"), (SET, 190, 0, ""), (GET, 202, 8192, "")])

    def test_hosts_are_read_as_records_cut_to_the_buffer(self):
        self.start("--host", "ab", "--host", "c")
        client = self.attached()
        record = b"Nab\0A" + bytes(6) + b"L" + bytes(6) + b"E" + bytes(2)
        self.assertEqual(self.ask(client, GET, 202, 8192), (0, record + record.replace(b"ab", b"c") + b"\0"))
        self.assertEqual(self.ask(client, GET, 202, 5), (0, b"Nab\0A"))

    def test_host_infos_are_read_byte_for_byte(self):
        self.start("--host-infos", "4e6100ff")
        self.assertEqual(self.ask(self.attached(), GET, 202, 8192), (0, b"Na\0\xff"))

    def test_wrong_lengths_and_unknown_options_are_refused(self):
        self.start()
        client = self.attached()
        self.assertEqual(self.ask(client, SET, 191, 3, b"abc"), (errno.EINVAL, b""))
        self.assertEqual(self.ask(client, SET, 190, 1, b"a"), (errno.EINVAL, b""))
        self.assertEqual(self.ask(client, SET, 192, 6, bytes(6)), (errno.EINVAL, b""))
        self.assertEqual(self.ask(client, SET, 0, 3, bytes(3)), (errno.EINVAL, b""))
        self.assertEqual(self.ask(client, SET, 64), (errno.ENOPROTOOPT, b""))
        self.assertEqual(self.ask(client, GET, 203, 10), (errno.ENOPROTOOPT, b""))

    def test_options_before_the_attachment_are_refused(self):
        self.start()
        self.assertEqual(self.ask(self.connect(), SET, 190), (errno.ENOTCONN, b""))

    def test_a_unit_is_attached_once_until_its_panel_goes(self):
        self.start()
        first = self.attached()
        second = self.connect()
        self.assertEqual(self.ask(second, ATTACH, UNIT), (errno.EBUSY, b""))
        first.close()
        self.assertEqual(self.ask(second, ATTACH, UNIT), (0, b""))

    def test_refused_requests_get_the_error_and_others_not(self):
        self.start("--refuse", "set:192=5", "--refuse", "get=12")
        client = self.attached()
        self.assertEqual(self.ask(client, SET, 192, 7, bytes(7)), (5, b""))
        self.assertEqual(self.ask(client, SET, 193, 4, bytes(4)), (0, b""))
        self.assertEqual(self.ask(client, GET, 202, 10), (12, b""))

    def test_a_refused_attachment_attaches_nothing(self):
        self.start("--refuse", "attach=1")
        client = self.connect()
        self.assertEqual(self.ask(client, ATTACH, UNIT), (1, b""))
        self.assertEqual(self.ask(client, SET, 190), (errno.ENOTCONN, b""))

    def test_hanging_requests_get_no_answer_and_others_do(self):
        self.start("--hang", "set:197")
        client = self.attached()
        self.send(client, SET, 197, 0)
        self.assertEqual(self.ask(client, SET, 190), (0, b""))
        self.assertEqual(self.recorded()[1:], [(SET, 197, 0, ""), (SET, 190, 0, "")])

    def test_a_dying_driver_leaves_its_socket_and_the_record(self):
        driver = self.start("--die", "set:190")
        client = self.attached()
        self.send(client, SET, 190, 0)
        self.assertEqual(client.recv(100), b"")
        self.assertEqual(driver.wait(5), 1)
        self.assertTrue(os.path.exists(self.socket_path))
        self.assertEqual(self.recorded()[-1], (SET, 190, 0, ""))

    def test_a_driver_that_died_can_be_started_again(self):
        self.start("--die", "set:190").kill()
        self.start()
        self.attached()

    def test_sigterm_ends_it_and_removes_the_socket(self):
        driver = self.start()
        self.attached()
        driver.send_signal(signal.SIGTERM)
        self.assertEqual(driver.wait(5), 0)
        self.assertFalse(os.path.exists(self.socket_path))

    def test_the_socket_is_the_users_alone(self):
        self.start()
        self.assertEqual(os.stat(self.socket_path).st_mode & 0o777, 0o600)
        self.assertEqual(os.stat(os.path.dirname(self.socket_path)).st_mode & 0o777, 0o700)


if __name__ == "__main__":
    unittest.main()
