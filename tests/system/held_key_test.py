#!/usr/bin/python3
"""The test button sounds one chord while the space bar is held, however often the key repeats."""

import time

import accessible_test
import driver_requests
import panel_test
from private_desktop import wait_until

BUTTON = "MIDI OUT Play test chord"
NAME = "MIDI OUT Port display name"
PORT = 0


class HeldKey(panel_test.PanelTest):
    @staticmethod
    def tab_to(panel, name):
        for _ in accessible_test.TAB_ORDER:
            if panel.has_focus(name):
                return
            panel.type("", "Tab")
            time.sleep(0.05)
        wait_until(lambda: panel.has_focus(name), panel_test.PATIENCE, name)

    @staticmethod
    def plays(driver):
        return [payload for kind, number, _, payload in driver.requests()
                if (kind, number) == (driver_requests.SET, PORT)]

    def seconds_of_many_repeats(self, panel):
        """For how long a key must be held to repeat twenty times; the keys of this display repeat."""
        self.tab_to(panel, NAME)
        start = time.monotonic()
        panel.xdotool("keydown", "x")
        wait_until(lambda: panel.text(NAME).count("x") > 20, panel_test.PATIENCE, "a key that repeats")
        panel.xdotool("keyup", "x")
        return time.monotonic() - start

    def test_held_space_plays_one_chord(self):
        driver = self.start_driver()
        panel = self.start()
        panel.activate()
        seconds = self.seconds_of_many_repeats(panel)
        self.tab_to(panel, BUTTON)
        driver.forget()
        panel.xdotool("keydown", "space")
        wait_until(lambda: self.plays(driver), panel_test.PATIENCE, "the chord")
        time.sleep(seconds)
        self.assertEqual(len(self.plays(driver)), 1, "while the key is held")
        panel.xdotool("keyup", "space")
        wait_until(lambda: len(self.plays(driver)) == 2, panel_test.PATIENCE, "the end of the chord")
        # The next press is one of its own.
        panel.type("", "space")
        wait_until(lambda: len(self.plays(driver)) == 4, panel_test.PATIENCE, "the next chord")

    def test_key_repeats_in_a_field_again_afterwards(self):
        self.start_driver()
        panel = self.start()
        panel.activate()
        self.tab_to(panel, BUTTON)
        panel.type("", "space")
        self.seconds_of_many_repeats(panel)


if __name__ == "__main__":
    panel_test.main()
