"""A held test note ends whatever the driver does meanwhile, without a further click."""

import threading
import unittest

import panel_test
from bad_driver_test import OddDriver, good
from panel_test import control_socket
from private_desktop import wait_until

SET = 2
PORT = 0
TEST_BUTTON = "MIDI OUT Play test chord"
ERROR = "testout error 110 while playing..."


class OwedNoteOff(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        self.plays = 0
        self.late = threading.Event()  # the note-on may be answered
        self.addCleanup(self.late.set)
        driver = OddDriver(control_socket(self.desktop), self.reply)
        self.addCleanup(driver.listener.close)
        self.panel = self.start()
        self.panel.activate()

    def reply(self, kind, number, sequence):
        if (kind, number) == (SET, PORT):
            self.plays += 1
            if self.plays == 1:
                self.late.wait()
        return good(sequence, kind)

    def play_while_the_driver_hangs(self):
        self.panel.hold(TEST_BUTTON)
        wait_until(lambda: self.plays == 1, panel_test.PATIENCE, "the note-on")
        wait_until(lambda: ERROR in self.panel.log(), panel_test.PATIENCE, "the note-on's failure")
        self.panel.let_go()
        wait_until(lambda: self.panel.log().count(ERROR) == 2, panel_test.PATIENCE, "the note-off's failure")
        self.assertEqual(self.plays, 1)

    def answer(self):
        self.late.set()
        wait_until(lambda: self.plays == 2, panel_test.PATIENCE, "the note-off")

    def test_the_note_off_goes_out_when_the_driver_answers_again(self):
        self.play_while_the_driver_hangs()
        self.answer()
        self.assertEqual(self.panel.log_lines(), [ERROR] * 2)
        self.assert_quits(self.panel)
        self.assertEqual(self.plays, 2)

    def test_the_note_off_goes_out_while_a_question_is_open(self):
        self.play_while_the_driver_hangs()
        self.panel.press("About")
        message = "About Vexil III MIDI Driver:"
        wait_until(lambda: len(self.panel.windows()) == 2, panel_test.PATIENCE, "the question")
        self.answer()
        self.panel.answer(message, "Ok")

    def test_the_note_off_goes_out_while_a_file_is_chosen(self):
        self.play_while_the_driver_hangs()
        self.panel.press("Load")
        wait_until(lambda: self.panel.dialog("Load Settings"), panel_test.PATIENCE, "the file chooser")
        self.answer()
        self.panel.type("", "Escape")
        wait_until(lambda: not self.panel.dialog("Load Settings"), panel_test.PATIENCE, "the end of the chooser")


if __name__ == "__main__":
    panel_test.main()
