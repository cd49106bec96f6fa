#!/usr/bin/python3
"""A name that an input method is still composing is not lost when the panel is told to use what it shows."""

import pathlib
import subprocess

import input_method
import panel_test
from private_desktop import end, wait_until

INPUT_METHOD = {"QT_IM_MODULE": "ibus", "IBUS_USE_PORTAL": "1"}
NAME = "MIDI OUT Port display name"


class InputMethod(panel_test.PanelTest):
    def start_composing(self, with_change):
        """A panel with a name under composition, after a change to apply or as the only one."""
        method = self.desktop.start(["/usr/bin/python3", str(pathlib.Path(input_method.__file__))], stdout=subprocess.PIPE,
                                    text=True)
        self.addCleanup(method.stdout.close)
        self.addCleanup(end, method)
        self.assertEqual(method.stdout.readline(), "ready\n")
        panel = self.start(INPUT_METHOD)
        panel.activate()
        if with_change:
            panel.toggle("Show Connectors")
            panel.wait_enabled("Apply")
        panel.click(panel.control(NAME))
        wait_until(lambda: panel.has_focus(NAME), panel_test.PATIENCE, "the field")
        panel.type("k")
        self.assertEqual(method.stdout.readline(), "composing\n")
        return panel

    def test_apply_takes_what_is_being_composed(self):
        panel = self.start_composing(with_change=True)
        panel.click(panel.control("Apply"))
        panel.wait_enabled("Apply", False)
        self.assertEqual(self.stored()["01 Out_CustomName"], input_method.COMPOSED)
        self.assert_quits(panel)

    def test_close_asks_about_what_is_being_composed(self):
        panel = self.start_composing(with_change=False)
        panel.close()
        panel.answer("Settings have not been previously applied. Apply settings?", "Apply and Quit")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)
        self.assertEqual(self.stored()["01 Out_CustomName"], input_method.COMPOSED)


if __name__ == "__main__":
    panel_test.main()
