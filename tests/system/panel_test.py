"""What the tests of the running panel have in common: a private desktop for the program of tests, and a fresh home for each
test. A test program ends with

    if __name__ == "__main__":
        panel_test.main()

and is called with the panel's path as its first argument.
"""

import json
import pathlib
import subprocess
import sys
import unittest

import private_desktop
import stored_configuration as stored

PATIENCE = 15.0
RECORDING_DRIVER = str(pathlib.Path(__file__).resolve().parent / "recording_driver.py")

_desktop = None
_program = None


class Driver:
    """A running recording driver and what it was asked for."""

    def __init__(self, desktop, options):
        self.record = desktop.runtime / "requests"
        self.process = desktop.start(
            ["/usr/bin/python3", RECORDING_DRIVER, str(control_socket(desktop)), str(self.record), *options],
            stdout=subprocess.PIPE)
        if self.process.stdout.readline() != b"ready\n":
            raise RuntimeError("the recording driver did not start")

    def requests(self):
        """Every request so far, in the form of driver_requests."""
        entries = [json.loads(line) for line in self.record.read_text().splitlines()]
        return [(entry["kind"], entry["number"], entry["length"], bytes.fromhex(entry["payload"])) for entry in entries]

    def forget(self):
        """Forgets what was asked so far."""
        self.record.write_text("")

    def end(self):
        private_desktop.end(self.process)
        self.process.stdout.close()


def program():
    """The panel's path."""
    return _program


def control_socket(desktop):
    return desktop.runtime / "vexil3/com.sonavert.driver.vexil3"


class PanelTest(unittest.TestCase):
    def setUp(self):
        self.desktop = _desktop
        self.desktop.new_home()

    def start(self, environment=None, prefix=()):
        """Starts the panel and waits for its window. `prefix`: a command that runs the panel."""
        from panel_window import Panel
        panel = Panel(self.desktop, [*prefix, _program], environment)
        self.addCleanup(private_desktop.end, panel.process)
        return panel

    def start_driver(self, *options):
        driver = Driver(self.desktop, options)
        self.addCleanup(driver.end)
        return driver

    def assert_requests(self, driver, expected):
        self.assertEqual(driver.requests(), expected)

    def apply(self, panel):
        """Presses Apply and waits until it is done."""
        panel.wait_enabled("Apply")
        panel.press("Apply")
        panel.wait_enabled("Apply", False)

    def stored(self, domain=stored.DOMAIN):
        return stored.read(self.desktop.preferences, domain)

    def assert_quits(self, panel):
        self.assertEqual(panel.quit(), 0, panel.log())

    def assert_same_values(self, found, expected):
        """The same keys, with equal values of the same types."""
        self.assertEqual(sorted(found), sorted(expected))
        for key, value in expected.items():
            self.assertIs(type(found[key]), type(value), key)
            self.assertEqual(found[key], value, key)


def main():
    global _desktop, _program
    _program = sys.argv.pop(1)
    obstacle = private_desktop.obstacle()
    if obstacle:
        print(f"Skipped: {obstacle}")
        sys.exit(private_desktop.SKIPPED)
    with private_desktop.PrivateDesktop() as desktop:
        desktop.adopt()
        _desktop = desktop
        program = unittest.main(exit=False, verbosity=2, warnings="ignore")
    sys.exit(0 if program.result.wasSuccessful() else 1)
