#!/usr/bin/python3
"""Usage: demonstrate_network_test.py VEXIL3D VEXIL3CTL DEMONSTRATE

The two computers that ./run shows where there is no display: as namespaces, and as two services on loopback.
"""

import os
import subprocess
import sys
import tempfile
import unittest

programs = demonstrate = None


class DemonstrateNetwork(unittest.TestCase):
    def show(self, environment=None):
        done = subprocess.run(["/usr/bin/python3", demonstrate, *programs], capture_output=True, text=True, check=False,
                              timeout=100, env={**os.environ, **(environment or {})})
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        for word in ("was played there and heard here: 6 messages.", "vexil3ctl status on laptop:", "vexil3ctl status on studio:",
                     "Both services have ended with status 0 and 0."):
            self.assertIn(word, done.stdout)
        return done.stdout

    def test_two_computers_play_to_each_other(self):
        text = self.show()
        if "services on loopback" in text:
            self.skipTest(text.splitlines()[0])
        self.assertIn('port 11 of the laptop plays to port 12 of "studio"', text)

    def test_where_namespaces_cannot_be_made_they_are_services_on_loopback(self):
        # Without the tool that makes network cards.
        with tempfile.TemporaryDirectory() as folder:
            text = self.show({"PATH": folder})
        self.assertIn("two services on loopback: ip (iproute2) is not installed.", text)
        self.assertIn('plays to port 12 of "127.0.0.1:', text)


if __name__ == "__main__":
    *programs, demonstrate = sys.argv[1:4]
    del sys.argv[1:4]
    unittest.main(verbosity=2)
