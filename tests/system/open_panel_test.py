#!/usr/bin/python3
"""Usage: open_panel_test.py VEXIL3 VEXIL3D VEXIL3CTL OPEN_PANEL

What ./run does on a desktop: the panel gets a driver, its own where the user has none, and only that one ends with it.
"""

import os
import pathlib
import signal
import subprocess
import sys

import music_world
import panel_test
from private_desktop import end, wait_until

vexil3d = vexil3ctl = open_panel = None


class OpenPanel(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        self.tools = self.desktop.home / "tools"
        self.tools.mkdir()
        # A driver that shows itself to no music program of this computer, and a computer without installed units.
        self.vexil3d = self.tool("vexil3d", f'exec {vexil3d} --midi none')
        self.tool("systemctl", "exit 1")
        self.path = {"PATH": f"{self.tools}:{os.environ['PATH']}"}

    def tool(self, name, text):
        path = self.tools / name
        path.write_text(f"#!/bin/sh\n{text}\n")
        path.chmod(0o755)
        return str(path)

    def open(self):
        """The window that the script has opened. The script's words are in its log."""
        from panel_window import Panel
        panel = Panel(self.desktop, [open_panel, panel_test.program(), self.vexil3d, vexil3ctl], self.path)
        self.addCleanup(end, panel.process)
        return panel

    def status(self):
        return subprocess.run([vexil3ctl, "status"], env=self.desktop.environment, capture_output=True, text=True,
                              check=False)

    def close(self, panel):
        self.assert_quits(panel)
        return panel.log()

    def test_driver_is_started_for_the_panel_and_ends_with_it(self):
        panel = self.open()
        wait_until(lambda: "Control panel  attached" in self.status().stdout, what="the attachment")
        self.assertIn("has been started for the panel", self.close(panel))
        self.assertEqual(self.status().returncode, 3)

    def test_both_end_with_the_script(self):
        panel = self.open()
        opened = panel.application.get_process_id()
        panel.process.send_signal(signal.SIGTERM)
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 143)
        self.assertFalse(os.path.exists(f"/proc/{opened}"))
        self.assertEqual(self.status().returncode, 3)

    def test_driver_that_is_there_is_used_and_stays(self):
        service = music_world.RunningService(vexil3d, self.desktop.environment, self.desktop.folder / "vexil3d.log", "none")
        self.addCleanup(service.end)
        panel = self.open()
        wait_until(lambda: service.status()["attached"], what="the attachment")
        self.assertIn("that is running is used", self.close(panel))
        self.assertEqual(self.status().returncode, 0)

    def test_installed_driver_is_started_by_its_unit(self):
        calls = self.desktop.home / "calls"
        self.tool("systemctl", f'echo "$@" >> {calls}')
        panel = self.open()
        log = self.close(panel)
        self.assertIn("that is installed is used", log)
        self.assertEqual(calls.read_text(), "--user cat vexil3d.socket\n--user start vexil3d.socket\n")
        # Nothing has been started by these calls, as where there is a driver for all users that this one may not use.
        self.assertRegex(log, "cannot be used; the panel works without it. .*service")

    def test_installed_driver_that_answers_is_used_without_another_word(self):
        self.tool("systemctl", f"[ $2 = start ] || exit 0\n{self.vexil3d} &\necho $! >{self.desktop.home}/driver\n"
                               f"until {vexil3ctl} status >/dev/null 2>&1; do sleep 0.05; done")
        panel = self.open()
        self.addCleanup(os.kill, int((self.desktop.home / "driver").read_text()), signal.SIGTERM)
        wait_until(lambda: "Control panel  attached" in self.status().stdout, what="the attachment")
        self.assertNotIn("cannot be used", self.close(panel))

    def test_without_a_driver_the_panel_opens_all_the_same(self):
        self.vexil3d = self.tool("vexil3d", "exit 1")
        panel = self.open()
        self.assertIn("could not be started", self.close(panel))


def main():
    global vexil3d, vexil3ctl, open_panel
    vexil3d, vexil3ctl = (str(pathlib.Path(sys.argv[index]).resolve()) for index in (2, 3))
    open_panel = sys.argv[4]
    del sys.argv[2:5]
    panel_test.main()


if __name__ == "__main__":
    main()
