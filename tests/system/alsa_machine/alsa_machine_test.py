#!/usr/bin/python3
"""Usage: alsa_machine_test.py CACHE

The machine in which the ALSA back end is tested: what it runs, what comes back, and what it cannot do.
"""

import io
import pathlib
import sys
import tempfile
import time
import unittest

import alsa_machine
import machine_image

_cache = None


class AlsaMachineTest(unittest.TestCase):
    def run_in_machine(self, command, **options):
        output = io.BytesIO()
        status = alsa_machine.run(_cache, ["/bin/sh", "-c", command], output=output, **options)
        return status, output.getvalue()

    def test_output_and_status_come_back(self):
        status, output = self.run_in_machine("echo out; echo err >&2; printf 'no end'; exit 3")
        self.assertEqual(status, 3)
        self.assertEqual(output, b"out\nerr\nno end")

    def test_there_is_a_sequencer_with_the_programs_of_this_computer(self):
        status, output = self.run_in_machine("test -c /dev/snd/seq && cat /proc/asound/seq/clients && exec '%s' -V"
                                             % sys.executable)
        self.assertEqual(status, 0)
        self.assertIn(b"Midi Through", output)
        self.assertIn(b"Python", output)

    def test_what_is_written_stays_in_the_machine(self):
        with tempfile.TemporaryDirectory() as name:
            file = pathlib.Path(name) / "file"
            file.write_text("before", encoding="utf-8")
            status, output = self.run_in_machine(f"cat {file} && echo after >{file} && cat {file} && touch {name}/new")
            self.assertEqual((status, output), (0, b"beforeafter\n"))
            self.assertEqual(file.read_text(encoding="utf-8"), "before")
            self.assertEqual(list(pathlib.Path(name).iterdir()), [file])

    def test_words_and_variables_arrive_as_they_are(self):
        output = io.BytesIO()
        words = ["/usr/bin/printf", "%s|", "a b", "it's", '"$HOME"', ""]
        alsa_machine.run(_cache, words, output=output)
        self.assertEqual(output.getvalue(), b'a b|it\'s|"$HOME"||')
        _, printed = self.run_in_machine('printf %s "$SOME"; pwd', environment={"SOME": "a 'b'"}, working_folder="/usr")
        self.assertEqual(printed, b"a 'b'/usr\n")

    def test_time_is_limited(self):
        begin = time.monotonic()
        with self.assertRaises(alsa_machine.TimeOver):
            self.run_in_machine("sleep 1000", seconds=1)
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
