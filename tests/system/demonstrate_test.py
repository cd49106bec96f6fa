#!/usr/bin/python3
"""Usage: demonstrate_test.py VEXIL3 VEXIL3D VEXIL3CTL DEMONSTRATE

What ./run shows where there is no display, with JACK and without.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

import music_world
import private_desktop

programs = demonstrate = None


class Demonstrate(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vexil3-shown-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.picture = self.folder / "panel.png"

    def show(self, environment=None):
        a_thousand_seconds_ago = time.time() - 1000
        done = subprocess.run(["/usr/bin/python3", demonstrate, *programs, str(self.picture), str(a_thousand_seconds_ago)],
                              capture_output=True, text=True, env={**os.environ, **(environment or {})}, check=False, timeout=250)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertRegex(done.stdout, r"the panel is open and attached to it: 10\d\d\.\d s after ./run was called")
        self.assertEqual(self.picture.read_bytes()[:4], b"\x89PNG")
        return done.stdout

    @unittest.skipIf(music_world.obstacle(), music_world.obstacle())
    def test_music_is_heard_through_the_ports_of_the_window(self):
        text = self.show()
        for word in ('One music program plays to "Vexil III:To the synth out", another hears it at "Vexil III:From the keys in".',
                     "the chord [40, 52, 55, 62, 67, 71] was heard", "MIDI system    JACK, running"):
            self.assertIn(word, text)

    def test_without_jack_it_says_so_and_shows_the_rest(self):
        tools = self.folder / "tools"
        tools.mkdir()
        for folder in os.environ["PATH"].split(":"):
            for tool in pathlib.Path(folder).glob("*"):
                if not tool.name.startswith("jack") and not (tools / tool.name).exists():
                    (tools / tool.name).symlink_to(tool)
        text = self.show({"PATH": str(tools)})
        self.assertIn("It goes without music: jackd is not installed.", text)
        self.assertIn("Apply has been pressed", text)


if __name__ == "__main__":
    *programs, demonstrate = sys.argv[1:5]
    del sys.argv[1:5]
    reason = private_desktop.obstacle()
    if reason:
        print(f"Skipped: {reason}")
        sys.exit(private_desktop.SKIPPED)
    unittest.main(verbosity=2)
