#!/usr/bin/python3
"""Two days of use in fast motion, with the real driver: fresh start, second start, edits, Apply, the driver stopped and started, save
and load by both file choosers, a full disk, and an end with unapplied changes. Nothing is lost, and nothing comes unasked.

The preferences are on a small disk of their own, which a mount namespace gives this program and everything that it starts.
"""

import errno
import os
import signal
import subprocess
import sys

import file_choosers_test as choosers
import panel_test
import private_desktop
import stored_configuration as stored
from private_desktop import SKIPPED, wait_until

NAME = "MIDI OUT Port display name"
TARGET = "MIDI OUT Target computer name"
OPTIONS = ("Show Connectors", "Launch Monitor", "Enable Logging")
QUESTION = "Settings have not been previously applied. Apply settings?"
DISK_SIZE = "1m"
INSIDE = "--inside"

driver_program, ctl_program = None, None


class TwoDays(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        self.disk = self.desktop.home / ".config"
        self.disk.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={DISK_SIZE}", "tmpfs", self.disk], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", self.disk], check=True)
        self.driver = None
        self.expected = stored.defaults()

    # The driver, as the service manager has it.

    def start_vexil3d(self):
        self.driver = self.desktop.start([driver_program, "--midi", "none"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(private_desktop.end, self.driver)
        wait_until(lambda: self.ctl("status").returncode == 0, panel_test.PATIENCE, "the driver")

    def stop_vexil3d(self):
        self.driver.send_signal(signal.SIGTERM)
        self.assertEqual(self.driver.wait(panel_test.PATIENCE), 0)

    def ctl(self, *arguments):
        return subprocess.run([ctl_program, *arguments], env=self.desktop.environment, check=False, capture_output=True, text=True)

    # The panel.

    def assert_stored(self):
        """What is stored is what was applied last, and the computers that the driver has found."""
        values = self.stored()
        values.pop("Cache")
        self.assert_same_values(values, self.expected)

    def start_day(self, environment=None):
        """A panel that shows what is stored: the options, the name and target of port 11, and nothing to apply."""
        panel = self.start(environment)
        for option in OPTIONS:
            self.assertTrue(panel.is_checked(option), option)
        self.assertEqual(panel.text(NAME), self.expected["01 Out_CustomName"])
        self.assertEqual(panel.text(TARGET), self.expected["01 DstHost"])
        self.assertFalse(panel.is_enabled("Apply"))
        return panel

    def apply_and_check(self, panel, **changes):
        self.expected.update(changes)
        self.apply(panel)
        self.assertEqual(panel.windows(), [panel.window], "no alert")
        self.assert_stored()

    def play(self, panel):
        """A test chord. Its notes go out without an error."""
        panel.hold("MIDI OUT Play test chord")
        panel.let_go()
        panel.toggle("MIDI OUT Send Immediately")
        panel.toggle("MIDI OUT Send Immediately")
        self.assertNotIn("while playing", panel.log())

    def choose(self, panel, button, path):
        """Enters a path in the toolkit's file chooser."""
        panel.press(button)
        wait_until(lambda: len(panel.windows()) == 2, panel_test.PATIENCE, "the file chooser")
        panel.wait_active()
        panel.type(str(path), "Return")
        wait_until(lambda: len(panel.windows()) == 1, panel_test.PATIENCE, "the end of the file chooser")

    def fill_disk(self):
        """Leaves no room for a file on the disk of the preferences."""
        ballast = self.disk / "ballast"
        with self.assertRaises(OSError) as raised, ballast.open("wb", buffering=0) as file:
            while True:
                file.write(bytes(4096))
        self.assertEqual(raised.exception.errno, errno.ENOSPC)
        return ballast

    def test_two_days(self):
        self.start_vexil3d()
        self.first_day()
        self.second_day()
        self.last_start()

    def first_day(self):
        panel = self.start_day()
        self.assert_quits(panel)
        panel = self.start_day()

        panel.enter(NAME, "Stage piano")
        panel.enter(TARGET, "localhost")
        panel.step("MIDI OUT Target port")
        self.apply_and_check(panel, **{"01 Out_CustomName": "Stage piano", "01 DstHost": "localhost",
                                       "01 PortFlags": stored.entry(0xC0, 0, 1)})
        wait_until(lambda: "Stage piano" in self.ctl("status").stdout, panel_test.PATIENCE, "the driver to take it up")
        panel.select_port("Port 12")
        panel.toggle("MIDI IN")
        panel.enter("MIDI IN Port display name", "From the keys")
        self.apply_and_check(panel, **{"InputPorts": stored.mask(1), "02 In_CustomName": "From the keys"})
        panel.select_port("Port 11")
        self.play(panel)

        # The driver is restarted, and everything goes on without the panel being so.
        self.stop_vexil3d()
        panel.enter(NAME, "Stage piano 2")
        self.apply(panel)
        self.start_vexil3d()
        panel.enter(NAME, "Stage piano 3")
        self.apply_and_check(panel, **{"01 Out_CustomName": "Stage piano 3"})
        wait_until(lambda: "Stage piano 3" in self.ctl("status").stdout, panel_test.PATIENCE, "the driver to take it up")
        self.play(panel)

        # Save, spoil, load.
        self.file = self.desktop.home / "show.vexil3"
        self.choose(panel, "Save", self.file)
        panel.enter(NAME, "Spoilt")
        panel.wait_enabled("Apply")
        self.choose(panel, "Load", self.file)
        panel.wait_enabled("Apply", False)
        self.assertEqual(panel.text(NAME), "Stage piano 3")
        self.assert_quits(panel)
        self.assert_stored()

    def second_day(self):
        portal = choosers.StandIn(self, choosers.file_portal)
        panel = self.start_day(choosers.DESKTOPS_CHOOSER)
        kept = self.file.read_bytes()

        # The desktop's own chooser, and a name without its ending.
        panel.enter(NAME, "Organ")
        panel.press("Save")
        self.assertEqual(portal.question()["folder"], str(self.desktop.home))
        portal.answer(self.file.with_suffix(""))
        panel.answer("show.vexil3 already exists.\nDo you want to replace it?", "No")
        portal.question()
        portal.answer(self.desktop.home / "organ")
        wait_until((self.desktop.home / "organ.vexil3").exists, panel_test.PATIENCE, "the second file")
        self.assertEqual(self.file.read_bytes(), kept)
        for name, text in ((self.file, "Stage piano 3"), (self.desktop.home / "organ.vexil3", "Organ")):
            panel.press("Load")
            portal.question()
            portal.answer(name)
            wait_until(lambda text=text: panel.text(NAME) == text, panel_test.PATIENCE, f"{text} again")
        self.apply_and_check(panel, **{"01 Out_CustomName": "Organ"})

        # The disk is full: it is said once, the edits stay, and nothing is half there.
        ballast = self.fill_disk()
        alert = ("The settings could not be stored: write: No space left on device (28): "
                 f"{stored.path(self.desktop.preferences)}")
        panel.enter(NAME, "Strings")
        panel.press("Apply")
        panel.answer(alert, "Ok")
        self.assert_stored()
        panel.enter(TARGET, "studio")
        panel.wait_enabled("Apply")
        panel.close()
        panel.answer(QUESTION, "Apply and Quit")
        panel.answer(alert, "Ok")
        self.assertIsNone(panel.process.poll())
        self.assertEqual((panel.text(NAME), panel.text(TARGET)), ("Strings", "studio"))
        ballast.unlink()

        # An end with unapplied changes: asked once, however often the end is asked for meanwhile.
        panel.enter(TARGET, "stage")
        panel.wait_enabled("Apply")
        panel.close()
        wait_until(lambda: len(panel.windows()) == 2, panel_test.PATIENCE, "the question")
        for _ in range(2):
            panel.process.send_signal(signal.SIGTERM)
        panel.answer(QUESTION, "Cancel")
        panel.enter(NAME, "Strings 2")  # dealt with behind whatever was put off
        self.assertEqual(panel.windows(), [panel.window])
        panel.process.send_signal(signal.SIGTERM)
        panel.answer(QUESTION, "Apply and Quit")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)
        self.expected.update({"01 Out_CustomName": "Strings 2", "01 DstHost": "stage"})
        self.assert_stored()

    def last_start(self):
        panel = self.start_day()
        self.assert_quits(panel)
        self.assert_stored()
        self.assertEqual([path.name for path in self.desktop.preferences.iterdir() if path.suffix == ".plist"],
                         [stored.path(self.desktop.preferences).name], "nothing was set aside")
        self.stop_vexil3d()


def enter_namespace():
    """Starts this program anew in a mount namespace of its own. Does not return where there can be one."""
    command = ["unshare", "--mount", "--propagation", "private", *(() if os.geteuid() == 0 else ("--map-root-user",))]
    if subprocess.run([*command, "true"], check=False, capture_output=True).returncode != 0:
        print("Skipped: this user can have no mount namespace")
        sys.exit(SKIPPED)
    os.execvp(command[0], [*command, sys.executable, *sys.argv, INSIDE])


if __name__ == "__main__":
    if sys.argv[-1] != INSIDE:
        if choosers.missing():
            print(f"Skipped: missing: {choosers.missing()}")
            sys.exit(SKIPPED)
        enter_namespace()
    sys.argv.pop()
    ctl_program = sys.argv.pop()
    driver_program = sys.argv.pop()
    panel_test.main()
