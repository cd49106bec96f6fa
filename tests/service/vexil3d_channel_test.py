#!/usr/bin/python3
"""The channel of a running vexil3d with good and bad clients, as bare packets."""

import errno
import os
import random
import resource
import socket
import struct
import subprocess
import time

import running_service
from running_service import (ATTACH, GET, LONGEST_DATA, RELOAD, SET, STATUS, UNIT, WATCH, Client, packet_list,
                             request, test_record, wait_until)


class Channel(running_service.ServiceTest):
    def setUp(self):
        super().setUp()
        self.service = self.start()

    def assert_served(self):
        self.assertIsNone(self.service.process.poll(), self.service.log())
        self.assertEqual(self.client().ask(RELOAD), (0, b""))

    def test_one_panel_at_a_time(self):
        panel = self.panel()
        second = self.client()
        self.assertEqual(second.attach(), errno.EBUSY)
        self.assertEqual(panel.attach(), errno.EISCONN)
        self.assertTrue(second.status()["attached"])

    def test_attaches_again_at_once(self):
        for _ in range(200):
            panel = Client(self.surroundings.control)
            self.assertEqual(panel.attach(), 0)
            panel.close()

    def test_panel_that_is_killed_lets_go_of_all(self):
        code = ("import socket,sys,time; s=socket.socket(socket.AF_UNIX,socket.SOCK_SEQPACKET); s.connect(sys.argv[1])\n"
                "for r in sys.argv[2:]: s.send(bytes.fromhex(r)); s.recv(99)\n"
                "print(flush=True); time.sleep(60)")
        requests = [request(1, ATTACH, UNIT), request(2, SET, 192, payload=test_record(5, "localhost", 1)),
                    request(3, SET, 193, payload=struct.pack("<I", 5))]
        panel = subprocess.Popen(["/usr/bin/python3", "-c", code, str(self.surroundings.control),
                                  *(each.hex() for each in requests)], stdout=subprocess.PIPE)
        self.addCleanup(panel.stdout.close)
        panel.stdout.readline()
        client = self.client()
        self.assertEqual([port["port"] for port in client.status()["ports"]], [11, 16])
        panel.kill()
        panel.wait()
        wait_until(lambda: not client.status()["attached"])
        self.assertEqual([port["port"] for port in client.status()["ports"]], [11])

    def test_a_watch_tells_of_a_panel_and_of_music(self):
        panel, watcher = self.panel(), self.client()
        known = 0

        def watched():
            """Waits for a change; the status then."""
            nonlocal known
            error, number = watcher.ask(WATCH, known)
            self.assertEqual(error, 0)
            known = int.from_bytes(number, "little")
            return watcher.status()

        def watch_until(condition):
            status = watched()
            while not condition(status):
                status = watched()
            return status

        watch_until(lambda status: status["attached"])
        self.assertEqual(panel.set(192, test_record(5, "localhost", 1)), 0)
        self.assertEqual(panel.set(193, struct.pack("<I", 5)), 0)
        watch_until(lambda status: [port["port"] for port in status["ports"]] == [11, 16])
        looks = watcher.status()["looks"]
        self.assertEqual(panel.set(5, packet_list(b"\x90\x3c\x40")), 0)
        status = watch_until(lambda status: status["looks"] > looks and status["ports"][1]["test"]["messages"] == 1)
        # There is a look that finds nothing new.
        watch_until(lambda later: later["looks"] > status["looks"])
        panel.close()
        watch_until(lambda status: not status["attached"])

    def test_sequences_come_back(self):
        client = self.client()
        for sequence in (0, 1, 0x7FFFFFFF, 0xFFFFFFFF):
            client.send(request(sequence, RELOAD))
            self.assertEqual(client.reply(), (sequence, 0, b""))

    def test_options_need_an_attachment(self):
        client = self.client()
        for option in (0, 190, 191, 192, 193, 194, 195, 196, 197, 1000):
            self.assertEqual(client.set(option), errno.ENOTCONN)
        self.assertEqual(client.ask(GET, 202, 8192), (errno.ENOTCONN, b""))

    def test_options_are_checked_to_the_byte(self):
        panel = self.panel()
        port = struct.pack("<I", 5)
        for option, payload, expected in (
                (190, b"", 0), (190, b"\0", errno.EINVAL), (191, port, 0), (191, port[:3], errno.EINVAL),
                (193, port, errno.ENXIO), (194, port, errno.ENXIO), (193, b"", errno.EINVAL),
                (192, test_record(5, "localhost", 1)[:-1], errno.EINVAL), (192, test_record(64, "", 1), errno.EINVAL),
                (5, packet_list(b"\x90\x40\x64"), errno.ENXIO),
                (192, test_record(5, "localhost", 1), 0), (5, packet_list(b"\x90\x40\x64"), errno.ENXIO),
                (193, port, 0), (5, packet_list(b"\x90\x40\x64"), 0), (5, packet_list(), 0),
                (5, packet_list(b"\x90\x40\x64")[:-1], errno.EINVAL), (5, packet_list(b"") + b"\0", errno.EINVAL),
                (5, b"", errno.EINVAL), (6, packet_list(b"\x90\x40\x64"), errno.ENXIO),
                (5, packet_list(bytes(512)), 0), (5, packet_list(bytes(513)), errno.EMSGSIZE),
                (194, port, 0), (194, port, errno.ENXIO),
                (195, b"", 0), (196, b"", 0), (196, b"x", errno.EINVAL), (197, b"", 0), (197, b"x", errno.EINVAL),
                (64, b"", errno.ENOPROTOOPT), (189, b"", errno.ENOPROTOOPT), (198, b"", errno.ENOPROTOOPT),
                (202, b"", errno.ENOPROTOOPT), (0xFFFFFFFF, b"", errno.ENOPROTOOPT)):
            self.assertEqual(panel.set(option, payload), expected, (option, payload))
        self.assertEqual(panel.ask(GET, 190, 8192), (errno.ENOPROTOOPT, b""))

    def test_hosts_are_this_computer(self):
        error, data = self.panel().ask(GET, 202, 8192)
        name = socket.gethostname().encode()
        self.assertEqual(error, 0)
        self.assertEqual(data[:len(name) + 3], b"N" + name + b"\0A")
        self.assertEqual(len(data), len(name) + 19 + 1)
        self.assertEqual(data[len(name) + 7:len(name) + 10], b"\0\0L")
        self.assertEqual(data[len(name) + 16:], b"E\1\0\0")

    def test_test_notes_are_counted(self):
        panel = self.panel()
        self.assertEqual(panel.set(192, test_record(5, "localhost", 1)), 0)
        self.assertEqual(panel.set(193, struct.pack("<I", 5)), 0)
        self.assertEqual(panel.set(5, packet_list(b"\x90\x40\x64", b"\x90\x41\x64")), 0)
        test = panel.status()["ports"][1]["test"]
        self.assertEqual((test["messages"], test["bytes"], test["filtered"]), (2, 6, 2))
        self.assertEqual(test["routeProblem"], "Port 12 is not enabled as MIDI IN.")

    def test_status_too_long_for_the_asker(self):
        self.assertEqual(self.client().ask(STATUS, length=10), (errno.EMSGSIZE, b""))

    def test_malformed_requests_are_answered(self):
        client = self.client()
        for packet in (request(9, 0), request(9, 6), request(9, 0xFFFFFFFF), request(9, RELOAD, length=1),
                       request(9, ATTACH, UNIT, length=1), request(9, SET, 190, length=1),
                       request(9, SET, 190, length=0xFFFFFFFF), request(9, RELOAD) + b"\0",
                       request(9, GET, 202, length=LONGEST_DATA + 1)):
            client.send(packet)
            self.assertEqual(client.reply(), (9, errno.EINVAL, b""), packet)

    def test_packets_without_a_sequence_end_the_connection(self):
        for length in range(16):
            client = self.client()
            client.send(bytes(length))
            self.assertIsNone(client.reply())
        self.assert_served()

    def test_packets_above_the_cap_are_refused(self):
        panel = self.panel()
        for length in (LONGEST_DATA + 1, 100000, 200000):
            panel.send(request(9, SET, 0, payload=bytes(length)))
            self.assertEqual(panel.reply(), (9, errno.EINVAL, b""))
        self.assertEqual(panel.set(190), 0)

    def test_random_packets_do_no_harm(self):
        generator = random.Random(1)
        for _ in range(300):
            client = Client(self.surroundings.control)
            for _ in range(generator.randrange(10)):
                kind = generator.choice((1, 2, 2, 2, 3, 4, 5, 6, generator.randrange(1 << 32)))
                number = generator.choice((175, 192, 193, 194, 191, 202, generator.randrange(256)))
                payload = generator.randbytes(generator.randrange(40))
                packet = request(1, kind, number, payload=payload)
                if generator.random() < 0.3:
                    packet = packet[:generator.randrange(len(packet) + 1)]
                try:
                    client.send(packet)
                except OSError:
                    break
            client.close()
        self.assert_served()

    def test_client_that_does_not_read_is_closed(self):
        deaf = self.client()
        deaf.socket.setblocking(False)
        sent = 0
        try:
            while sent < 100000:
                try:
                    deaf.send(request(1, STATUS, length=LONGEST_DATA))
                    sent += 1
                except BlockingIOError:
                    time.sleep(0.001)
        except (BrokenPipeError, ConnectionResetError):
            pass
        self.assertLess(sent, 100000)
        self.assert_served()

    def test_thousand_connections_leave_the_panel_alone(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(4096, hard), hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        panel = self.panel()
        crowd = [self.client() for _ in range(1000)]
        self.assertEqual(panel.set(190), 0)
        self.assertEqual(crowd[-1].ask(RELOAD), (0, b""))
        wait_until(lambda: len(os.listdir(f"/proc/{self.service.pid}/fd")) < 60)
        self.assertEqual(panel.set(190), 0)

    def test_attachment_is_there_again_after_a_restart(self):
        self.panel()
        self.service.kill()
        self.service = self.start()
        self.assertEqual(self.panel().set(190), 0)


if __name__ == "__main__":
    running_service.main()
