#!/usr/bin/python3
"""One panel in a session: a second start brings the first to the front and ends. Without a session bus, or beside a panel that
hangs, a start goes on as if it were the first."""

import json
import os
import signal
import socket
import subprocess
import time

import panel_test
from private_desktop import end, wait_until

QUICKLY = 15.0  # seconds; a start without a hang takes a fraction of one on an idle machine
# A hang is waited for three seconds; the rest is the start itself on a loaded machine.
IN_SPITE_OF_A_HANG = 20.0
SLOW = 1.5  # seconds that a panel may take for its start on a slow computer
NO_BUS = {"DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent/bus"}


class OnePanelBase(panel_test.PanelTest):
    def start_again(self, environment=None, *arguments):
        """Starts the panel a second time and returns its process."""
        process = self.desktop.start([panel_test.program(), *arguments], environment, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        self.addCleanup(process.stdout.close)
        self.addCleanup(end, process)
        return process

    def start_first(self):
        """A panel, and the list of its one window once that is shown: assistive technology knows it earlier."""
        panel = self.start()
        return panel, wait_until(self.shown, what="the window on the display")

    def assert_ends_silently(self, process):
        self.assertEqual(process.wait(QUICKLY), 0)
        self.assertEqual(process.stdout.read(), b"")

    def xdotool(self, *arguments):
        return subprocess.run(["xdotool", *arguments], env=self.desktop.environment, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout.split()

    def shown(self):
        """The ids of the shown windows of panels."""
        return self.xdotool("search", "--onlyvisible", "--name", "^Vexil III Control Panel$")

    def active(self):
        return self.xdotool("getactivewindow")

    def process_of(self, window):
        return int(self.xdotool("getwindowpid", window)[0])

    def wait_shown_by(self, process):
        """Waits for the window of a process, and returns its id."""
        def window():
            self.assertIsNone(process.poll(), "the panel has ended")
            return next((found for found in self.shown() if self.process_of(found) == process.pid), None)
        return wait_until(window, IN_SPITE_OF_A_HANG, "a window of the second panel")

    def cover(self):
        """Opens another program's window, which takes the keyboard."""
        other = self.desktop.start(["xev", "-name", "Other program"], stdout=subprocess.DEVNULL)
        self.addCleanup(end, other)
        found = wait_until(lambda: self.xdotool("search", "--onlyvisible", "--name", "^Other program$"), what="xev")
        self.xdotool("windowactivate", "--sync", found[0])
        wait_until(lambda: self.active() == found, what="xev active")


class OnePanel(OnePanelBase):
    def test_a_second_start_brings_the_first_to_the_front_and_ends(self):
        panel, window = self.start_first()
        self.cover()
        self.assert_ends_silently(self.start_again())
        wait_until(lambda: self.active() == window, QUICKLY, "the first panel in front")
        self.assertEqual(self.shown(), window)
        self.assert_quits(panel)

    def test_a_panel_that_was_minimised_comes_back(self):
        panel, window = self.start_first()
        self.xdotool("windowminimize", "--sync", window[0])
        wait_until(lambda: not self.shown(), what="the minimised window")
        self.assert_ends_silently(self.start_again())
        wait_until(lambda: self.active() == window, QUICKLY, "the first panel in front")
        wait_until(lambda: self.xdotool("getwindowfocus") == window, QUICKLY, "the keyboard in the panel")
        self.assert_quits(panel)

    def test_a_question_that_is_open_comes_to_the_front_and_stays_open(self):
        panel, window = self.start_first()
        panel.press("About")
        message = "About Vexil III MIDI Driver:"
        wait_until(lambda: len(panel.windows()) == 2, what="the question")
        question = wait_until(lambda: [found for found in self.active() if found not in window], what="the question")
        self.cover()
        self.assert_ends_silently(self.start_again())
        wait_until(lambda: self.active() == question, QUICKLY, "the question in front")
        panel.answer(message, "Ok")
        self.assert_quits(panel)

    def test_arguments_of_a_second_start_are_nothing_to_the_first(self):
        panel = self.start()
        self.assert_ends_silently(self.start_again(None, "/tmp/other.vexil3", "--help"))
        self.assertEqual(len(panel.windows()), 1)
        self.assertFalse(panel.is_enabled("Apply"))
        self.assert_quits(panel)

    def test_the_next_start_after_the_end_opens_a_window(self):
        self.assert_quits(self.start())
        panel = self.start()
        panel.process.send_signal(signal.SIGKILL)
        panel.process.wait()
        self.assert_quits(self.start())

    def test_of_starts_at_the_same_moment_one_stays(self):
        processes = [self.start_again() for _ in range(4)]
        wait_until(lambda: sum(process.poll() is None for process in processes) == 1, IN_SPITE_OF_A_HANG, "one panel")
        left = next(process for process in processes if process.poll() is None)
        self.assertEqual([process.returncode for process in processes if process is not left], [0, 0, 0])
        self.wait_shown_by(left)
        self.assertEqual(len(self.shown()), 1)

    def test_without_a_session_bus_every_start_opens_a_window(self):
        for number in (1, 2):
            self.wait_shown_by(self.start_again(NO_BUS))
            self.assertEqual(len(self.shown()), number)

    def test_a_bus_that_does_not_answer_is_none(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as deaf:
            path = str(self.desktop.runtime / "deaf")
            deaf.bind(path)
            deaf.listen()
            process = self.start_again({"DBUS_SESSION_BUS_ADDRESS": f"unix:path={path}"})
            accepted, _ = deaf.accept()
            with accepted:
                self.wait_ended_waiting_for_bus(accepted)
            self.wait_shown_by(process)

    def wait_ended_waiting_for_bus(self, accepted):
        """The panel gives its connection up: the other end is closed."""
        accepted.settimeout(IN_SPITE_OF_A_HANG)
        while accepted.recv(1024):
            pass

    def test_a_panel_that_is_slow_is_waited_for(self):
        panel = self.start()
        panel.process.send_signal(signal.SIGSTOP)
        self.addCleanup(panel.process.send_signal, signal.SIGCONT)
        second = self.start_again()
        with self.assertRaises(subprocess.TimeoutExpired):
            second.wait(SLOW)
        panel.process.send_signal(signal.SIGCONT)
        self.assert_ends_silently(second)
        self.assertEqual(len(self.shown()), 1)
        self.assert_quits(panel)

    def test_a_panel_that_hangs_does_not_keep_the_next_from_starting(self):
        panel = self.start()
        panel.process.send_signal(signal.SIGSTOP)
        self.addCleanup(panel.process.send_signal, signal.SIGCONT)
        began = time.monotonic()
        second = self.start_again()
        window = self.wait_shown_by(second)
        self.assertLess(time.monotonic() - began, IN_SPITE_OF_A_HANG)
        # From now on the second is the one that is brought to the front.
        self.cover()
        self.assert_ends_silently(self.start_again())
        wait_until(lambda: self.active() == [window], QUICKLY, "the second panel in front")


class LaunchOnX11(OnePanelBase):
    """What the window manager and the desktop hear when a launch with a startup id brings the first panel to the front."""

    def record_launch(self, startup_id):
        """The messages of such a launch up to the end of the text about its start, and the panel's window."""
        panel, (window,) = self.start_first()
        self.cover()
        recorder = self.desktop.start(["/usr/bin/python3", os.path.join(os.path.dirname(__file__), "root_messages.py")],
                                      stdout=subprocess.PIPE, text=True)
        self.addCleanup(recorder.stdout.close)
        self.addCleanup(end, recorder)
        self.assertEqual(recorder.stdout.readline(), "ready\n")
        self.assert_ends_silently(self.start_again({"DESKTOP_STARTUP_ID": startup_id}))
        messages = []
        while not (messages and messages[-1]["type"].startswith("_NET_STARTUP_INFO") and 0 in messages[-1]["data"]):
            messages.append(json.loads(recorder.stdout.readline()))
        self.assert_quits(panel)
        return messages, int(window)

    def test_window_asks_to_be_active_at_the_time_of_the_launch(self):
        messages, window = self.record_launch("launcher_TIME1")
        requests = [message for message in messages if message["type"] == "_NET_ACTIVE_WINDOW"]
        # From a program, at time 1.
        self.assertEqual([(request["window"], request["data"][:2]) for request in requests], [(window, [1, 1])])

    def test_desktop_is_told_that_the_start_is_over(self):
        messages, _ = self.record_launch('a "launcher"_TIME1')
        pieces = [message for message in messages if message["type"].startswith("_NET_STARTUP_INFO")]
        self.assertEqual([piece["type"] for piece in pieces], ["_NET_STARTUP_INFO_BEGIN", "_NET_STARTUP_INFO"])
        text = bytes(byte for piece in pieces for byte in piece["data"])
        self.assertEqual(text.rstrip(b"\0"), b'remove: ID="a \\"launcher\\"_TIME1"')


class Tokens(OnePanelBase):
    """What a second start tells the first: the tokens of its launch, and nothing else."""

    def record_start(self, environment, *arguments):
        listener = self.desktop.start(["/usr/bin/python3", os.path.join(os.path.dirname(__file__), "activated.py")],
                                      stdout=subprocess.PIPE, text=True)
        self.addCleanup(listener.stdout.close)
        self.addCleanup(end, listener)
        self.assertEqual(listener.stdout.readline(), "ready\n")
        self.assert_ends_silently(self.start_again(environment, *arguments))
        return listener.stdout.readline()

    def test_tokens_of_the_launch_are_handed_on(self):
        self.assertEqual(
            self.record_start({"DESKTOP_STARTUP_ID": "launcher/vexil3_TIME12345", "XDG_ACTIVATION_TOKEN": "a-token"}),
            "{'activation-token': 'a-token', 'desktop-startup-id': 'launcher/vexil3_TIME12345'}\n")

    def test_nothing_is_handed_on_without_tokens(self):
        self.assertEqual(self.record_start({}, "--argument", "file.vexil3"), "{}\n")


if __name__ == "__main__":
    panel_test.main()
