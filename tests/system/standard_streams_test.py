"""The panel started with closed standard streams, as some launchers do."""

import os
import subprocess
import unittest

import panel_test
import private_desktop
from private_desktop import wait_until

CLOSED = ("sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh")


class StandardStreams(panel_test.PanelTest):
    def start_without_streams(self, **environment):
        process = self.desktop.start([*CLOSED, panel_test.program()], environment=environment)
        self.addCleanup(private_desktop.end, process)
        wait_until(lambda: self.window_of(process), panel_test.PATIENCE, "the panel's window")
        return process

    def window_of(self, process):
        search = subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(process.pid)], check=False,
                                env=self.desktop.environment, stdout=subprocess.PIPE, text=True,
                                stderr=subprocess.DEVNULL)
        return search.stdout.split()

    def streams(self, process):
        return [os.readlink(f"/proc/{process.pid}/fd/{stream}") for stream in range(3)]

    def test_closed_streams_are_given_to_no_connection(self):
        process = self.start_without_streams()
        self.assertEqual(self.streams(process), ["/dev/null"] * 3)

    def test_the_window_comes_without_a_session_bus_too(self):
        process = self.start_without_streams(DBUS_SESSION_BUS_ADDRESS=f"unix:path={self.desktop.folder}/no-bus")
        self.assertEqual(self.streams(process), ["/dev/null"] * 3)


if __name__ == "__main__":
    panel_test.main()
