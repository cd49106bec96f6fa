#!/usr/bin/python3
"""A session that ends on X11 asks about unapplied settings in time, and goes on when the answer is Cancel."""

import os
import subprocess

import panel_test
from private_desktop import end, wait_until

QUESTION = "Settings have not been previously applied. Apply settings?"


class Session(panel_test.PanelTest):
    def start_in_session(self):
        """A panel that a session manager knows."""
        self.manager = self.desktop.start(
            ["/usr/bin/python3", os.path.join(os.path.dirname(__file__), "session_manager.py")],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.manager.stdin.close)
        self.addCleanup(self.manager.stdout.close)
        self.addCleanup(end, self.manager)
        panel = self.start({"SESSION_MANAGER": self.manager.stdout.readline().strip()})
        self.assert_tells("registered")
        return panel

    def start_with_a_change(self):
        panel = self.start_in_session()
        panel.toggle("Show Connectors")
        panel.wait_enabled("Apply")
        return panel

    def end_session(self):
        self.manager.stdin.write("end\n")
        self.manager.stdin.flush()

    def assert_tells(self, *lines):
        self.assertEqual([self.manager.stdout.readline().strip() for _ in lines], list(lines))

    def test_nothing_is_asked_when_all_is_applied(self):
        panel = self.start_in_session()
        self.end_session()
        self.assert_tells("saved: 1", "closed")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)

    def test_changes_are_asked_about_and_applied(self):
        panel = self.start_with_a_change()
        self.end_session()
        self.assert_tells("interacts")
        panel.answer(QUESTION, "Apply and Quit")
        self.assert_tells("interacted, cancelled: 0")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)
        self.assertEqual(self.stored()["MiscOptions"] & 1, 0)

    def test_cancel_keeps_the_session_and_the_changes(self):
        panel = self.start_with_a_change()
        self.end_session()
        self.assert_tells("interacts")
        panel.answer(QUESTION, "Cancel")
        self.assert_tells("interacted, cancelled: 1")
        self.assertTrue(panel.is_enabled("Apply"))
        self.apply(panel)
        self.assert_quits(panel)

    def test_session_waits_for_a_question_that_is_open_and_asks_then(self):
        panel = self.start_with_a_change()
        panel.press("About")
        wait_until(lambda: len(panel.windows()) == 2, panel_test.PATIENCE, "the question")
        self.end_session()
        self.assert_tells("interacts", "interacted, cancelled: 1")
        panel.answer("About Vexil III MIDI Driver:", "Ok")
        panel.answer(QUESTION, "Quit")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)


if __name__ == "__main__":
    panel_test.main()
