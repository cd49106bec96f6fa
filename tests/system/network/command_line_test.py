#!/usr/bin/python3
"""Usage: command_line_test.py VEXIL3D VEXIL3CTL

What a user of two computers sees and does by the command line: vexil3ctl on both of them.
"""

import os
import signal
import subprocess
import sys

import network_bed
from network_bed import hearing, to

vexil3ctl = os.path.abspath(sys.argv.pop(2))


class LineReader:
    """The lines of a stream as they come."""

    def __init__(self, stream):
        self.descriptor = stream.fileno()
        self.rest = ""
        os.set_blocking(self.descriptor, False)

    def take(self):
        """The whole lines that have come since the last time."""
        try:
            self.rest += os.read(self.descriptor, 65536).decode()
        except BlockingIOError:
            pass
        *lines, self.rest = self.rest.split("\n")
        return lines


class CommandLineTest(network_bed.NetworkTest):
    def setUp(self):
        super().setUp()
        self.laptop, self.studio = self.computers("laptop", "studio")
        self.laptop.store(to(self.studio, 0))
        self.studio.store(hearing(0))

    def start(self, *computers):
        for computer in computers:
            computer.start_service("--network", "on")

    @staticmethod
    def begin(computer, *arguments):
        """vexil3ctl on a computer."""
        return subprocess.Popen([vexil3ctl, *arguments], env=computer.surroundings.environment,
                                preexec_fn=computer.enter, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)

    def ctl(self, computer, *arguments, given=""):
        """Its exit status, standard output and standard error."""
        program = self.begin(computer, *arguments)
        output, errors = program.communicate(given, timeout=60)
        return program.returncode, output, errors

    def done(self, computer, *arguments, given=""):
        status, output, errors = self.ctl(computer, *arguments, given=given)
        self.assertEqual((status, errors), (0, ""))
        return output

    def wait_for_way(self):
        self.assertEqual(self.done(self.laptop, "status", "--wait"), "Every route gets through.\n")

    def reason(self):
        """Why the studio does not hear the laptop."""
        return self.laptop.reason(0, "output")

    def test_the_wait_is_over_when_the_other_computer_hears(self):
        # Neither service runs yet: both are waited for.
        waiting = self.begin(self.laptop, "status", "--wait", "60")
        self.addCleanup(waiting.wait)
        self.addCleanup(waiting.kill)
        self.start(self.laptop, self.studio)
        self.assertEqual(waiting.communicate(timeout=90), ("Every route gets through.\n", ""))
        self.assertEqual(waiting.returncode, 0)
        text = self.done(self.laptop, "status")
        self.assertRegex(text, r"(?m)^Network +on every interface, UDP port 11188, key [0-9a-f]{16}$")
        self.assertRegex(text, r"(?m)^studio +up +\d+s \S+ +net0 +(\d\S* us|\d\S* ms)? +0 +\d+ +0$")
        self.assertLessEqual(max(map(len, text.splitlines())), 80)

    def test_the_wait_names_what_does_not_get_through_and_why(self):
        self.studio.store(hearing(5))
        self.start(self.laptop, self.studio)
        self.wait(lambda: "not enabled" in self.reason(), "an answer of the studio")
        problem = self.reason()
        status, output, errors = self.ctl(self.laptop, "status", "--wait", "1")
        self.assertEqual((status, output), (1, ""))
        self.assertEqual(errors, "vexil3ctl: after 1 second not every route gets through:\n"
                                 f"vexil3ctl: port 11 to studio, port 11: {problem}\n")

    def test_the_watch_tells_of_the_other_computer(self):
        self.start(self.laptop)
        watching = self.begin(self.laptop, "status", "--watch")
        for stream in (watching.stdin, watching.stdout, watching.stderr):
            self.addCleanup(stream.close)
        self.addCleanup(watching.wait)
        self.addCleanup(watching.kill)

        lines = LineReader(watching.stdout)

        def await_line(beginning, holding):
            self.wait(lambda: any(line.startswith(beginning) and holding in line for line in lines.take()),
                      f"a line that begins with {beginning!r} and holds {holding!r}")

        await_line("studio ", "searching")
        self.start(self.studio)
        await_line("studio ", " up ")
        self.studio.service.kill()
        await_line("studio ", " lost ")
        watching.send_signal(signal.SIGINT)
        self.assertEqual(watching.wait(), 0)

    def test_a_computer_is_listed_kept_out_and_let_in_again(self):
        self.start(self.laptop, self.studio)
        self.wait_for_way()
        key = self.laptop.status()["network"]["key"]
        self.wait(lambda: '"since":0' not in self.studio.ask("list"), "the laptop's key among what is stored")
        self.assertRegex(self.done(self.studio, "network"),
                         rf"(?m)^laptop +\S+ +{key} \d{{4}}-\d\d-\d\d up$")
        self.done(self.studio, "network", "block", "laptop")
        self.assertRegex(self.done(self.studio, "network"), rf"(?m)^laptop +{key} \d{{4}}-\d\d-\d\d blocked$")
        self.wait(lambda: "let this computer in" in self.reason(), "the refusal")
        self.done(self.studio, "network", "unblock", key)
        # Not only after the 30 s that a refused caller waits.
        self.wait_for_way()

    def test_a_secret_is_needed_where_it_is_set(self):
        self.start(self.laptop, self.studio)
        self.wait_for_way()
        self.done(self.studio, "network", "secret", given="a secret of ours\n")
        self.wait(lambda: "wants a secret" in self.reason(), "the refusal")
        self.assertEqual(self.ctl(self.laptop, "network", "secret", given="seven77\n"),
                         (1, "", "vexil3ctl: a secret has at least 8 characters\n"))
        self.done(self.laptop, "network", "secret", given="a secret of ours\n")
        self.wait_for_way()
        self.assertIn("Secret         set", self.done(self.laptop, "network"))
        self.assertNotIn("ours", self.laptop.service.log() + self.studio.service.log())
        self.done(self.laptop, "network", "no-secret")
        self.done(self.studio, "network", "no-secret")
        self.wait_for_way()

    def test_where_it_speaks_is_changed_and_kept(self):
        self.start(self.laptop, self.studio)
        self.wait_for_way()
        self.done(self.laptop, "network", "off")
        self.assertIn("Speaks         off\n", self.done(self.laptop, "network"))
        self.laptop.service.end()
        self.laptop.start_service()
        self.assertIn("Speaks         off\n", self.done(self.laptop, "network"))
        self.done(self.laptop, "network", "net0")
        self.assertIn("Speaks         on net0, UDP port 11188\n", self.done(self.laptop, "network"))
        self.wait_for_way()


if __name__ == "__main__":
    network_bed.main()
