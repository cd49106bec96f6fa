#!/usr/bin/python3
"""Usage: panel_status_test.py VEXIL3 VEXIL3D VEXIL3CTL

What the window says of how things stand, with the real driver: the line below the controls, the list that it opens, the marks.
"""

import os
import signal
import subprocess
import sys
import time

import panel_test
import private_desktop
import stored_configuration as stored
from private_desktop import wait_until
from running_service import wake_ups

NAME = "MIDI OUT Port display name"
RUNNING = "The service runs without a MIDI system"
WITHOUT_ROOTS_RIGHTS = ("setpriv", "--bounding-set=-dac_override,-dac_read_search")

vexil3d = None


class PanelStatus(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        # Port 11 plays to port 12.
        stored.store(self.desktop.preferences, stored.defaults() | {
            "InputPorts": stored.mask(1), "OutputPorts": stored.mask(0), "01 DstHost": "localhost",
            "01 PortFlags": stored.entry(0xC0, 0, 1), "01 Out_CustomName": "Stage piano"})

    def start_service(self):
        service = self.desktop.start([vexil3d, "--midi=none"], stderr=subprocess.DEVNULL)
        self.addCleanup(private_desktop.end, service)
        return service

    def start_both(self):
        service = self.start_service()
        wait_until(panel_test.control_socket(self.desktop).exists, panel_test.PATIENCE, "the driver")
        panel = self.start()
        self.wait_line(panel, RUNNING)
        return service, panel

    @staticmethod
    def wait_line(panel, text):
        def names():
            return [each.name for each in panel.window if each.getRoleName() == "push button"]
        wait_until(lambda: text in names(), panel_test.PATIENCE, f"{text!r} instead of {names()}")

    def test_a_driver_that_comes_and_goes_is_told(self):
        panel = self.start()
        self.wait_line(panel, "No driver is running")
        for _ in range(2):
            service = self.start_service()
            self.wait_line(panel, RUNNING)
            service.kill()
            service.wait()
            self.wait_line(panel, "No driver is running")
        self.assert_quits(panel)

    def test_an_apply_that_the_driver_does_not_take_up_is_told_until_it_does(self):
        service, panel = self.start_both()
        panel.enter(NAME, "Organ")
        service.send_signal(signal.SIGSTOP)
        self.apply(panel)
        self.wait_line(panel, "Stored, but the driver has not taken it up: it does not answer")
        service.send_signal(signal.SIGCONT)
        self.wait_line(panel, RUNNING)
        self.assert_quits(panel)

    def test_an_apply_that_is_not_stored_is_told_until_one_is(self):
        self.desktop.preferences.chmod(0o500)
        self.addCleanup(self.desktop.preferences.chmod, 0o700)
        panel = self.start(prefix=WITHOUT_ROOTS_RIGHTS if os.geteuid() == 0 else ())
        panel.enter(NAME, "Organ")
        panel.wait_enabled("Apply")
        panel.press("Apply")
        problem = f"open lock: Permission denied (13): {stored.path(self.desktop.preferences)}"
        panel.answer(f"The settings could not be stored: {problem}", "Ok")
        self.wait_line(panel, f"Not stored: {problem}")
        self.desktop.preferences.chmod(0o700)
        panel.enter(NAME, "Piano")
        self.apply(panel)
        self.wait_line(panel, "No driver is running")
        self.assert_quits(panel)

    def test_the_list_and_the_marks_say_what_the_line_has_no_room_for(self):
        _, panel = self.start_both()
        ports = next(each for each in panel.window if each.name == "Ports")
        row = next(each for each in ports if each.name == "Port 11")
        wait_until(lambda: row.description.startswith('MIDI OUT "Stage piano" to localhost, port 12, not connected.'),
                   panel_test.PATIENCE, f"the port in words instead of {row.description!r}")
        panel.press(RUNNING)
        wait_until(lambda: len(panel.windows()) == 2, panel_test.PATIENCE, "the list")
        self.assert_quits(panel)

    def test_idle_neither_wakes_up(self):
        service, panel = self.start_both()

        def rest():
            before = wake_ups(panel.process.pid), wake_ups(service.pid)
            time.sleep(3)
            return before == (wake_ups(panel.process.pid), wake_ups(service.pid))
        # What their start has brought comes first, on a busy computer a while after it.
        wait_until(rest, 60, "three seconds without a wake-up")
        self.assert_quits(panel)


if __name__ == "__main__":
    vexil3d = sys.argv[2]
    del sys.argv[2:4]
    panel_test.main()
