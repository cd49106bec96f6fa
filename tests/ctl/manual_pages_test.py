"""The manual pages are clean and tell of every command and option: manual_pages_test.py FOLDER PROGRAM..."""
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

FOLDER, PROGRAMS = pathlib.Path(sys.argv[1]), sys.argv[2:]
PAGES = sorted(FOLDER.iterdir())
SKIPPED = 77


def run(*command):
    return subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=60, check=False)


class ManualPages(unittest.TestCase):
    def test_there_is_one_for_each_program(self):
        self.assertEqual([page.name for page in PAGES], ["vexil3.1", "vexil3ctl.1", "vexil3d.1"])

    def test_mandoc_has_nothing_to_say(self):
        for page in PAGES:
            # Below the level of warnings it tells of the manual pages of this computer.
            lint = run("mandoc", "-T", "lint", "-W", "warning", page)
            self.assertEqual((lint.returncode, lint.stdout + lint.stderr), (0, ""), page.name)

    def test_groff_has_nothing_to_say(self):
        for page in PAGES:
            shown = run("man", "--warnings", "-l", page)
            self.assertEqual((shown.returncode, shown.stderr), (0, ""), page.name)

    def test_lines_fit_an_editor(self):
        for page in PAGES:
            for line in page.read_text(encoding="ascii").splitlines():
                self.assertLessEqual(len(line), 80, f"{page.name}: {line}")

    def test_every_command_and_option_is_told_of(self):
        for program in PROGRAMS:
            help_text = run(program, "--help").stdout
            page = (FOLDER / (pathlib.Path(program).name + ".1")).read_text(encoding="ascii")
            names = re.findall(r"^  (?:-[a-zA-Z], )?(--)?([a-z]+)\b", help_text, re.MULTILINE)
            self.assertGreater(len(names), 2)
            for dashes, name in names:
                told = rf"\.It Fl \\-{name}\b" if dashes else rf"\.It Cm {name}\b"
                self.assertRegex(page, told, f"{program} {dashes}{name}")

    def test_every_network_command_is_told_of(self):
        help_text = run(PROGRAMS[0], "network", "--help").stdout
        page = (FOLDER / "vexil3ctl.1").read_text(encoding="ascii")
        names = re.findall(r"^  ([a-z-]+) ", help_text, re.MULTILINE)
        self.assertGreater(len(names), 9)
        for name in names:
            self.assertRegex(page, rf"(?m)^\.(It )?Cm {name}\b")

    def test_manuals_name_one_another(self):
        for page in PAGES:
            others = set(re.findall(r"^\.Xr (\w+ \d)", page.read_text(encoding="ascii"), re.MULTILINE))
            self.assertEqual(others, {each.name.replace(".", " ") for each in PAGES if each != page})


if __name__ == "__main__":
    for tool in ("mandoc", "man"):
        if not shutil.which(tool):
            print(f"{tool} is not installed")
            sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
