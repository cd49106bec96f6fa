#!/usr/bin/python3
"""Whatever the driver does, the panel's window opens and works, and every failure is the one log line that belongs to it."""

import errno
import os
import socket
import struct
import threading
import time

import panel_test
import stored_configuration as stored
from panel_test import control_socket

NOT_CONNECTED = "Cannot connect to service; error -1."
ATTACH = 1


def not_found(error):
    return f"Cannot find service id; error {error}."


def refused_start(error):
    """The lines of a start in which a connected driver fails every option: hosts, test output (tried twice), time."""
    return [f"PostBrowse() failed; error {error}.", *no_test_output(error), f"Set_TstSndGrn error {error}."]


def no_test_output(error):
    return [f"Service access error {error} openng testout 0"] * 2


class OddDriver(threading.Thread):
    """A driver whose replies `reply(kind, number, sequence)` makes: bytes, or a pause in seconds before a good one."""

    def __init__(self, path, reply):
        super().__init__(daemon=True)
        self.reply = reply
        self.late = threading.Event()  # set when an answer after a pause has been sent
        path.parent.mkdir(mode=0o700)
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.listener.bind(str(path))
        self.listener.listen()
        self.start()

    def run(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return  # the test is over
            threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def serve(self, client):
        try:
            while packet := client.recv(70000):
                sequence, kind, number, _ = struct.unpack_from("<IIII", packet)
                reply = self.reply(kind, number, sequence)
                if isinstance(reply, float):
                    time.sleep(reply)
                    client.send(good(sequence, kind))
                    self.late.set()
                else:
                    client.send(reply)
        except ConnectionError:
            pass  # the panel has gone on without this answer
        client.close()


def good(sequence, kind):
    return struct.pack("<III", sequence, 0, 1) + b"\0" if kind == 3 else struct.pack("<III", sequence, 0, 0)


class BadDriver(panel_test.PanelTest):
    def assert_works(self, lines):
        """The panel starts with these log lines and no others, edits, applies, stores and quits."""
        panel = self.start()
        self.assertEqual(panel.log_lines(), lines)
        panel.enter("MIDI OUT Port display name", "Stage piano")
        self.apply(panel)
        self.assert_same_values(self.stored(), stored.defaults() | {"01 Out_CustomName": "Stage piano"})
        self.assert_quits(panel)

    def start_odd_driver(self, reply):
        driver = OddDriver(control_socket(self.desktop), reply)
        self.addCleanup(driver.listener.close)
        return driver

    def test_no_driver_is_one_line(self):
        self.assert_works([not_found(errno.ENOENT), *no_test_output(errno.ENOTCONN)])

    def test_no_runtime_folder_is_no_driver(self):
        if os.path.exists(f"/run/user/{os.geteuid()}/vexil3"):
            self.skipTest("this user has a driver of his own")
        self.desktop.environment.pop("XDG_RUNTIME_DIR")
        self.assert_works([not_found(errno.ENOENT), *no_test_output(errno.ENOTCONN)])

    def test_a_file_in_the_sockets_place_is_no_driver(self):
        control_socket(self.desktop).parent.mkdir()
        control_socket(self.desktop).write_text("")
        self.assert_works([not_found(errno.ENOTSOCK), *no_test_output(errno.ENOTCONN)])

    def test_a_socket_that_nobody_serves_cannot_be_connected(self):
        control_socket(self.desktop).parent.mkdir()
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as left_behind:
            left_behind.bind(str(control_socket(self.desktop)))
        self.assert_works([NOT_CONNECTED, *no_test_output(errno.ENOTCONN)])

    def test_a_driver_with_another_panel_cannot_be_connected(self):
        self.start_driver("--refuse", f"attach={errno.EBUSY}")
        self.assert_works([NOT_CONNECTED, *no_test_output(errno.ENOTCONN)])

    def test_a_driver_that_hangs_at_once_cannot_be_connected(self):
        self.start_driver("--hang", "attach")
        self.assert_works([NOT_CONNECTED, *no_test_output(errno.ENOTCONN)])

    def test_a_driver_that_dies_at_once_cannot_be_connected(self):
        self.start_driver("--die", "attach")
        self.assert_works([NOT_CONNECTED, *no_test_output(errno.ENOTCONN)])

    def test_a_driver_that_refuses_everything_costs_one_line_each(self):
        self.start_driver("--refuse", f"set={errno.EPERM}")
        self.assert_works(refused_start(errno.EPERM))

    def test_a_driver_that_hangs_later_costs_one_line_each_and_one_pause(self):
        self.start_driver("--hang", "set:196")
        started = time.monotonic()
        panel = self.start()
        self.assertEqual(panel.log_lines(), refused_start(errno.ETIMEDOUT))
        self.assertLess(time.monotonic() - started, panel_test.PATIENCE)
        self.assert_quits(panel)

    def test_a_driver_that_hangs_later_leaves_a_panel_that_works(self):
        self.start_driver("--hang", "set:192")
        self.assert_works([*no_test_output(errno.ETIMEDOUT), f"Set_TstSndGrn error {errno.ETIMEDOUT}."])

    def test_a_driver_that_dies_later_costs_one_line_each(self):
        self.start_driver("--die", "set:197")
        self.assert_works(refused_start(errno.ECONNREFUSED))

    def test_a_late_answer_to_the_attachment_is_no_connection(self):
        self.start_odd_driver(lambda kind, number, sequence: 0.5 if kind == ATTACH else good(sequence, kind))
        self.assert_works([NOT_CONNECTED, *no_test_output(errno.ENOTCONN)])

    def test_a_late_answer_fails_its_own_call_and_is_dropped(self):
        driver = self.start_odd_driver(lambda kind, number, sequence: 0.3 if number == 196 else good(sequence, kind))
        panel = self.start()
        self.assertLessEqual(set(panel.log_lines()), set(refused_start(errno.ETIMEDOUT)))
        self.assertTrue(driver.late.wait(panel_test.PATIENCE))
        before = panel.log_lines()
        panel.step("Send Quantization Time")
        panel.enter("MIDI OUT Port display name", "Stage piano")
        self.apply(panel)
        self.assert_quits(panel)
        self.assertEqual(panel.log_lines(), before)

    def test_a_short_answer_to_the_attachment_is_no_connection(self):
        self.start_odd_driver(lambda kind, number, sequence: struct.pack("<II", sequence, 0))
        self.assert_works([NOT_CONNECTED, *no_test_output(errno.ENOTCONN)])

    def test_a_wrong_answer_is_no_connection(self):
        self.start_odd_driver(lambda kind, number, sequence: b"no reply at all")
        self.assert_works([NOT_CONNECTED, *no_test_output(errno.ENOTCONN)])

    def test_an_answer_to_another_request_is_no_connection(self):
        self.start_odd_driver(lambda kind, number, sequence: good(sequence + 1000, kind))
        self.assert_works([NOT_CONNECTED, *no_test_output(errno.ENOTCONN)])

    def test_a_short_answer_to_an_option_fails_that_option(self):
        self.start_odd_driver(
            lambda kind, number, sequence: good(sequence, kind)[:8] if number == 191 else good(sequence, kind))
        self.assert_works([f"Set_TstSndGrn error {errno.EPROTO}."])


if __name__ == "__main__":
    panel_test.main()
