#!/usr/bin/python3
"""Where the window opens under a window manager, which puts a frame around it."""

import re
import subprocess

import panel_test
from panel_window import TITLE
from private_desktop import wait_until

CONTENT = (580, 430)


class WindowPlace(panel_test.PanelTest):
    def tell(self, *command):
        return subprocess.run(command, env=self.desktop.environment, check=True, stdout=subprocess.PIPE, text=True).stdout

    def place(self, window):
        """Left, top, width and height of a window's content on the display."""
        told = self.tell("xwininfo", "-id", window)
        return tuple(int(re.search(rf"{name}: +(-?\d+)", told)[1])
                     for name in ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height"))

    def test_content_is_in_the_middle_of_the_display(self):
        panel = self.start()
        window = panel.xdotool("search", "--onlyvisible", "--name", f"^{TITLE}$").split()[-1]
        display = [int(length) for length in panel.xdotool("getdisplaygeometry").split()]
        middle = tuple((whole - part) // 2 for whole, part in zip(display, CONTENT))
        frame = self.tell("xprop", "-id", window, "_NET_FRAME_EXTENTS")
        self.assertRegex(frame, r"= \d+, \d+, [1-9]", "a frame with a title bar")
        wait_until(lambda: self.place(window)[2:] == CONTENT, what="the size")
        self.assertEqual(self.place(window), middle + CONTENT)
        self.assert_quits(panel)


if __name__ == "__main__":
    panel_test.main()
