"""What bash offers behind "vexil3ctl": completion_test.py COMPLETION PROGRAM."""
import os
import pty
import re
import select
import subprocess
import sys
import tempfile
import time
import unittest

COMPLETION, PROGRAM = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
ASK = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _vexil3ctl; ' \
      '((${#COMPREPLY[@]})) && printf "%s\\n" "${COMPREPLY[@]}"; true'


class Completion(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vexil-completion-")
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name
        for name in ("my studio.vexil3", "music.mid", "backup.vexil3"):
            open(os.path.join(self.folder, name), "w", encoding="ascii").close()
        os.mkdir(os.path.join(self.folder, "more"))

    def offered(self, *words):
        """What is offered for the last of the words behind the program's name."""
        done = subprocess.run(["bash", "--norc", "--noprofile", "-c", ASK, "bash", COMPLETION, "vexil3ctl", *words],
                              cwd=self.folder, capture_output=True, text=True, timeout=60, check=True)
        self.assertEqual(done.stderr, "")
        return sorted(done.stdout.splitlines())

    def test_commands_are_those_of_the_program(self):
        help_text = subprocess.run([PROGRAM, "--help"], capture_output=True, text=True, timeout=60, check=True).stdout
        commands = re.findall(r"^  ([a-z]+)\b", help_text, re.MULTILINE)
        self.assertGreater(len(commands), 14)
        self.assertEqual(self.offered(""), sorted(commands))
        options = re.findall(r"^  (?:(-[a-zA-Z]), )?(--[a-z]+) ", help_text, re.MULTILINE)
        self.assertEqual(self.offered("-"), sorted(filter(None, sum(options, ()))))

    def test_a_beginning_is_completed(self):
        self.assertEqual(self.offered("s"), ["save", "set", "status"])
        self.assertEqual(self.offered("rel"), ["reload"])
        self.assertEqual(self.offered("x"), [])

    def test_json_is_offered_where_it_is_taken(self):
        for command in ("status", "hosts"):
            self.assertEqual(self.offered(command, "--j"), ["--json"])
        for command in ("load", "save", "reload"):
            self.assertEqual(self.offered(command, "--j"), [])
        self.assertEqual(self.offered("--json", "st"), ["status"])

    def test_what_network_takes_is_offered(self):
        help_text = subprocess.run([PROGRAM, "network", "--help"], capture_output=True, text=True, timeout=60,
                                   check=True).stdout
        commands = set(re.findall(r"^  ([a-z-]+) ", help_text, re.MULTILINE))
        self.assertGreater(len(commands), 9)
        self.assertEqual(self.offered("network", ""), sorted(commands | {"on", "off", "lo"}))
        self.assertEqual(self.offered("network", "un"), ["unblock"])
        self.assertEqual(self.offered("network", "allow", ""), ["any", "known", "secret"])
        self.assertEqual(self.offered("network", "speak", "o"), ["off", "on"])
        self.assertEqual(self.offered("network", "pin", ""), [])
        self.assertEqual(self.offered("network", "--j"), ["--json"])
        self.assertEqual(self.offered("network", "pin", "--j"), [])
        self.assertEqual(self.offered("network", "secret", "--f"), ["--file"])
        self.assertEqual(self.offered("network", "secret", "--file", "mu"), ["music.mid"])

    def test_ways_to_look_at_the_status_are_offered(self):
        self.assertEqual(self.offered("status", "--w"), ["--wait", "--watch"])
        self.assertEqual(self.offered("hosts", "--w"), ["--watch"])

    def test_ports_and_what_belongs_to_them_are_offered(self):
        for command in ("status", "monitor", "get", "set", "connect", "enable", "disable"):
            ports = self.offered(command, "")
            self.assertEqual((len(ports), ports[0], ports[-1]), (64, "11", "88"), command)
        self.assertEqual(self.offered("monitor", "11", "8"), [f"8{each}" for each in range(1, 9)])
        self.assertEqual(self.offered("enable", "11", ""), ["in", "out", "pipe"])
        self.assertEqual(self.offered("disable", "11", "in", "o"), ["out"])
        self.assertEqual(self.offered("connect", "11", ""), [])
        self.assertEqual(self.offered("set", "11", "t"), ["target="])
        self.assertEqual(self.offered("help", ""), ["network"])

    def test_keys_are_those_of_the_program(self):
        with tempfile.TemporaryDirectory(prefix="vexil-completion-") as home:
            shown = subprocess.run([PROGRAM, "get", "11"], env={"HOME": home, "XDG_RUNTIME_DIR": home}, timeout=60,
                                   capture_output=True, text=True, check=True).stdout
        keys = sorted(line.split("=")[0] for line in shown.splitlines())
        self.assertEqual(self.offered("get", "11", ""), keys)
        self.assertEqual(sorted({each.split("=")[0] for each in self.offered("set", "11", "")}), keys)

    def test_replace_is_offered_where_it_is_taken(self):
        self.assertEqual(self.offered("load", "--r"), ["--replace"])
        for command in ("status", "check", "save", "defaults"):
            self.assertEqual(self.offered(command, "--r"), [])
        self.assertEqual(self.offered("load", "--replace", "b"), ["backup.vexil3"])

    def test_load_offers_settings_files_and_folders(self):
        self.assertEqual(self.offered("load", ""), ["backup.vexil3", "more", "my studio.vexil3"])
        self.assertEqual(self.offered("load", "m"), ["more", "my studio.vexil3"])
        self.assertEqual(self.offered("check", "m"), ["more", "my studio.vexil3"])

    def test_load_offers_any_file_where_no_settings_file_matches(self):
        self.assertEqual(self.offered("load", "mu"), ["music.mid"])

    def test_save_offers_any_file(self):
        self.assertEqual(self.offered("save", "m"), ["more", "music.mid", "my studio.vexil3"])

    def test_nothing_is_offered_behind_what_is_complete(self):
        self.assertEqual(self.offered("load", "backup.vexil3", ""), [])
        self.assertEqual(self.offered("reload", ""), [])
        self.assertEqual(self.offered("get", "11", "in", ""), [])

    def test_behind_two_dashes_there_are_only_files(self):
        self.assertEqual(self.offered("load", "--", "b"), ["backup.vexil3"])
        self.assertEqual(self.offered("load", "--", "-"), [])

    def test_a_real_shell_completes_at_the_press_of_tab(self):
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.folder)
            os.environ.update(TERM="dumb", PS1="$ ", INPUTRC="/dev/null")
            os.execvp("bash", ["bash", "--norc", "--noprofile", "-i"])
        self.addCleanup(os.waitpid, process, 0)
        self.addCleanup(os.close, terminal)
        os.write(terminal, f"source '{COMPLETION}'\n".encode())
        os.write(terminal, b"printf '<%s>' vexil3ctl; vexil3ctl() { printf '{%s}' \"$@\"; }\n")
        os.write(terminal, b"vexil3ctl lo\tmy\t\n")
        text, end = "", time.monotonic() + 30
        while "{load}" not in text and time.monotonic() < end:
            if select.select([terminal], [], [], 0.1)[0]:
                text += os.read(terminal, 4096).decode()
        self.assertIn("{load}{my studio.vexil3}", text)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
