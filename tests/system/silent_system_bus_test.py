"""The removal of the cache on a computer whose system bus takes connections and says nothing."""

import socket
import unittest

import panel_test
from private_desktop import wait_until

ETIMEDOUT = 110


class SilentSystemBus(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        self.bus = socket.socket(socket.AF_UNIX)
        self.addCleanup(self.bus.close)
        path = self.desktop.runtime / "bus"
        self.bus.bind(str(path))
        self.bus.listen()
        self.panel = self.start({"DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={path}"})

    def remove_cache(self):
        self.panel.activate()
        self.panel.xdotool("keydown", "ctrl")
        self.panel.click(self.panel.control("About"))
        self.panel.xdotool("keyup", "ctrl")
        self.panel.answer("Cache Remove", "Ok")

    def test_the_window_lives_while_the_bus_is_waited_for(self):
        self.remove_cache()
        self.panel.toggle("Show Connectors")
        wait_until(lambda: f"AECreateDesc error {ETIMEDOUT}" in self.panel.log(), panel_test.PATIENCE, "the log line")

    def test_a_second_removal_meanwhile_is_refused_and_the_panel_goes_on(self):
        self.remove_cache()
        self.remove_cache()
        wait_until(lambda: self.panel.log().count("AECreateDesc error") == 2, panel_test.PATIENCE, "the log lines")
        self.panel.toggle("Show Connectors")


if __name__ == "__main__":
    panel_test.main()
