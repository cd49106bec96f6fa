#!/usr/bin/python3
"""Usage: own_installation_test.py BUILD_FOLDER

What a user's own installation puts into the prefix that is named when it is installed: everything that the user needs, and nothing
anywhere else.
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

PREFIX = "/home/ada/.local"
PROGRAMS = ("vexil3", "vexil3d", "vexil3ctl")

_root = _prefix = None


class OwnInstallation(unittest.TestCase):
    def installed(self):
        return [path for path in _root.rglob("*") if not path.is_dir()]

    def test_nothing_is_put_outside_the_prefix(self):
        self.assertEqual([path for path in self.installed() if _prefix not in path.parents], [])

    def test_nothing_is_there_that_only_all_users_of_a_computer_need(self):
        folders = {"sysusers.d", "tmpfiles.d", "logrotate.d", "system"}
        self.assertEqual([path for path in self.installed() if folders & set(path.parts)], [])

    def test_programs_are_there_with_their_manuals(self):
        for program in PROGRAMS:
            self.assertTrue(os.access(_prefix / "bin" / program, os.X_OK), program)
            manual = _prefix / f"share/man/man1/{program}.1.gz"
            self.assertEqual(subprocess.run(["gzip", "--test", manual], check=False).returncode, 0)

    def test_units_are_where_the_users_service_manager_looks_and_start_the_installed_program(self):
        # The build was configured for another prefix.
        folder = _prefix / "share/systemd/user"
        self.assertTrue((folder / "vexil3d.socket").is_file())
        unit = (folder / "vexil3d.service").read_text()
        self.assertIn(f"\nExecStart={PREFIX}/bin/vexil3d\n", unit)

    def test_completion_is_where_the_shell_looks(self):
        completion = _prefix / "share/bash-completion/completions/vexil3ctl"
        self.assertEqual(subprocess.run(["bash", "-n", completion], check=False).returncode, 0)

    def test_settings_files_have_a_type_and_its_icon_once_the_database_is_brought_up_to_date(self):
        subprocess.run(["update-mime-database", _prefix / "share/mime"], check=True)
        self.assertIn("application/x-vexil3:*.vexil3", (_prefix / "share/mime/globs").read_text().splitlines())
        self.assertTrue((_prefix / "share/icons/hicolor/scalable/mimetypes/application-x-vexil3.svg").is_file())


def main():
    global _root, _prefix
    build = sys.argv.pop(1)
    with tempfile.TemporaryDirectory(prefix="vexil3-") as folder:
        _root = pathlib.Path(folder)
        _prefix = _root / PREFIX.lstrip("/")
        # As if this folder were the root of the computer.
        subprocess.run(["cmake", "--install", build, "--prefix", PREFIX], check=True, stdout=subprocess.DEVNULL,
                       env=os.environ | {"DESTDIR": folder})
        program = unittest.main(exit=False, verbosity=2)
    sys.exit(0 if program.result.wasSuccessful() else 1)


if __name__ == "__main__":
    main()
