#!/usr/bin/python3
"""Usage: alsa_machine_test.py CACHE

The machine in which the ALSA back end is tested: what it runs, what comes back, and what it cannot do.
"""

import io
import pathlib
import shutil
import sys
import tempfile
import time
import unittest

import alsa_machine
import machine_image

_cache = None


# A machine takes its time to come up: one runs all that only looks around in it. Its parts are parted by a line.
PART = "-- part --"
WORDS = ("a b", "it's", '"$HOME"', "")
LOOKS = f"""
echo out; echo err >&2
echo '{PART}'
test -c /dev/snd/seq && cat /proc/asound/seq/clients && "$PYTHON" -V
echo '{PART}'
cat "$FOLDER/file" && echo after >"$FOLDER/file" && cat "$FOLDER/file" && touch "$FOLDER/new"
echo '{PART}'
printf '%s|' "$@"; echo
printf '%s' "$SOME"; pwd
echo '{PART}'
printf 'no end'
exit 3
"""


class AlsaMachineTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.name = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.name)
        cls.file = pathlib.Path(cls.name) / "file"
        cls.file.write_text("before\n", encoding="utf-8")
        output = io.BytesIO()
        cls.status = alsa_machine.run(_cache, ["/bin/sh", "-c", LOOKS, "sh", *WORDS], output=output, working_folder="/usr",
                                      environment={"SOME": "a 'b'", "FOLDER": cls.name, "PYTHON": sys.executable})
        cls.parts = output.getvalue().split(PART.encode() + b"\n")

    def test_output_and_status_come_back(self):
        self.assertEqual(self.status, 3)
        self.assertEqual(self.parts[0], b"out\nerr\n")
        self.assertEqual(self.parts[-1], b"no end")

    def test_there_is_a_sequencer_with_the_programs_of_this_computer(self):
        self.assertIn(b"Midi Through", self.parts[1])
        self.assertIn(b"Python", self.parts[1])

    def test_what_is_written_stays_in_the_machine(self):
        self.assertEqual(self.parts[2], b"before\nafter\n")
        self.assertEqual(self.file.read_text(encoding="utf-8"), "before\n")
        self.assertEqual(list(pathlib.Path(self.name).iterdir()), [self.file])

    def test_words_and_variables_arrive_as_they_are(self):
        self.assertEqual(self.parts[3], b'a b|it\'s|"$HOME"||\na \'b\'/usr\n')

    def test_time_is_limited(self):
        begin = time.monotonic()
        with self.assertRaises(alsa_machine.TimeOver):
            alsa_machine.run(_cache, ["/bin/sleep", "1000"], seconds=1, output=io.BytesIO())
        self.assertLess(time.monotonic() - begin, alsa_machine.BOOT_SECONDS)

    def test_what_is_missing_is_named(self):
        tools = machine_image.TOOLS
        machine_image.TOOLS = ("no-such-tool", *tools)
        try:
            with self.assertRaisesRegex(machine_image.Unavailable, "missing: no-such-tool"):
                machine_image.prepare(_cache)
        finally:
            machine_image.TOOLS = tools

    def test_a_kernel_that_cannot_be_had_leaves_nothing_behind(self):
        kernel = machine_image.KERNEL
        machine_image.KERNEL = "no-such-package-of-a-kernel"
        try:
            with tempfile.TemporaryDirectory() as cache:
                with self.assertRaisesRegex(machine_image.Unavailable, "no-such-package-of-a-kernel|no kernel package"):
                    machine_image.prepare(cache)
                self.assertEqual([path.name for path in pathlib.Path(cache).iterdir()], ["lock"])
        finally:
            machine_image.KERNEL = kernel


def main():
    global _cache
    _cache = sys.argv.pop(1)
    try:
        machine_image.prepare(_cache)
    except machine_image.Unavailable as reason:
        print(f"skipped: {reason}")
        sys.exit(alsa_machine.SKIPPED)
    unittest.main()


if __name__ == "__main__":
    main()
