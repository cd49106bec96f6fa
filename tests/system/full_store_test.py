"""What a person learns of settings that could not be stored."""

import os
import unittest

import panel_test
import stored_configuration as stored
from private_desktop import wait_until

NAME = "MIDI OUT Port display name"
QUESTION = "Settings have not been previously applied. Apply settings?"
# Without them, root is refused what every other user is refused.
WITHOUT_ROOTS_RIGHTS = ("setpriv", "--bounding-set=-dac_override,-dac_read_search")


class FullStore(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        stored.store(self.desktop.preferences, stored.defaults())
        self.desktop.preferences.chmod(0o500)
        self.addCleanup(self.desktop.preferences.chmod, 0o700)
        self.panel = self.start(prefix=WITHOUT_ROOTS_RIGHTS if os.geteuid() == 0 else ())
        self.alert = ("The settings could not be stored: open lock: Permission denied (13): "
                      f"{stored.path(self.desktop.preferences)}")
        for name in (NAME, "MIDI OUT Target computer name"):
            self.panel.enter(name, "studio")
        self.panel.wait_enabled("Apply")

    def lines(self):
        return [line for line in self.panel.log_lines() if "references" in line]

    def test_apply_that_cannot_store_is_one_line_and_one_alert(self):
        self.panel.press("Apply")
        self.panel.answer(self.alert, "Ok")
        self.assertEqual(len(self.lines()), 1, self.lines())
        self.assertTrue(self.lines()[0].endswith(" (2 values)"), self.lines())
        self.assertEqual(len(self.panel.windows()), 1)
        self.assert_quits(self.panel)

    def test_the_window_stays_after_apply_and_quit_that_cannot_store(self):
        self.panel.close()
        self.panel.answer(QUESTION, "Apply and Quit")
        self.panel.answer(self.alert, "Ok")
        self.assertIsNone(self.panel.process.poll())
        self.assertEqual(self.panel.text(NAME), "studio")
        self.panel.enter(NAME, "stage")
        self.desktop.preferences.chmod(0o700)
        self.apply(self.panel)
        self.assert_same_values(self.stored(), stored.defaults() | {
            "01 Out_CustomName": "stage", "01 DstHost": "studio"})
        self.assert_quits(self.panel)

    def test_the_alert_waits_for_a_question_that_is_open(self):
        self.panel.toggle("Use Wireless")
        self.panel.press("Apply")
        wireless = '"Use Wireless" option has been changed!'
        wait_until(lambda: len(self.panel.windows()) == 2, panel_test.PATIENCE, "the question")
        self.panel.answer(wireless, "Ok")
        self.panel.answer(self.alert, "Ok")
        self.assert_quits(self.panel)


if __name__ == "__main__":
    panel_test.main()
