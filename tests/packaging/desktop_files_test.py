#!/usr/bin/python3
"""Usage: desktop_files_test.py BUILD_FOLDER VERSION

The files by which a desktop knows the panel: installed into an empty folder and given to the validators of their formats, which
must have nothing to say.
"""

import configparser
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

ID = "com.sonavert.vexil3"
TOOLS = ("cmake", "desktop-file-validate", "appstreamcli", "xmllint", "update-mime-database")
SKIPPED = 77

_build = _version = _prefix = None


class DesktopFiles(unittest.TestCase):
    def assert_silent(self, *command):
        """The validator finds nothing: no error, no warning, no advice."""
        result = subprocess.run(command, check=False, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(result.returncode, 0, result.stdout)
        lines = [line for line in result.stdout.splitlines() if line and "Validation was successful." not in line]
        self.assertEqual(lines, [])

    def desktop_entry(self):
        parser = configparser.RawConfigParser()
        parser.optionxform = str
        parser.read(_prefix / f"share/applications/{ID}.desktop")
        return parser["Desktop Entry"]

    def assert_icon(self, folder, name):
        self.assert_silent("xmllint", "--noout", _prefix / f"share/icons/hicolor/scalable/{folder}/{name}.svg")
        header = (_prefix / f"share/icons/hicolor/48x48/{folder}/{name}.png").read_bytes()[:24]
        self.assertEqual(header[:8], b"\x89PNG\r\n\x1a\n")
        self.assertEqual(struct.unpack(">II", header[16:24]), (48, 48))

    def test_desktop_file_is_valid(self):
        self.assert_silent("desktop-file-validate", _prefix / f"share/applications/{ID}.desktop")

    def test_desktop_file_starts_the_installed_program_without_arguments(self):
        command = self.desktop_entry()["Exec"]
        self.assertEqual(len(command.split()), 1)
        self.assertTrue((_prefix / "bin" / command).is_file())

    def test_program_has_its_icon(self):
        self.assert_icon("apps", self.desktop_entry()["Icon"])

    def test_metainfo_is_valid(self):
        path = _prefix / f"share/metainfo/{ID}.metainfo.xml"
        self.assert_silent("xmllint", "--noout", path)
        self.assert_silent("appstreamcli", "validate", "--pedantic", "--no-net", path)

    def test_metainfo_names_the_desktop_file_and_this_version(self):
        root = ElementTree.parse(_prefix / f"share/metainfo/{ID}.metainfo.xml").getroot()
        self.assertTrue((_prefix / "share/applications" / root.findtext("launchable")).is_file())
        self.assertEqual(root.find("releases/release").get("version"), _version)

    def test_settings_files_have_a_type_with_an_icon(self):
        packages = _prefix / "share/mime/packages"
        self.assert_silent("xmllint", "--noout", packages / f"{ID}.xml")
        # Its only word would be that nobody looks for types in this folder.
        subprocess.run(["update-mime-database", _prefix / "share/mime"], check=True,
                       env={"PATH": "/usr/bin", "XDG_DATA_DIRS": str(_prefix / "share"), "HOME": str(_prefix)})
        globs = (_prefix / "share/mime/globs2").read_text().splitlines()
        self.assertIn("50:application/x-vexil3:*.vexil3", globs)
        icons = (_prefix / "share/mime/icons").read_text().splitlines()
        self.assertEqual(icons, ["application/x-vexil3:application-x-vexil3"])
        self.assert_icon("mimetypes", "application-x-vexil3")


def main():
    global _build, _version, _prefix
    _build, _version = sys.argv.pop(1), sys.argv.pop(1)
    missing = [tool for tool in TOOLS if not shutil.which(tool)]
    if missing:
        print("Skipped: missing: " + ", ".join(missing))
        sys.exit(SKIPPED)
    with tempfile.TemporaryDirectory(prefix="vexil3-") as folder:
        _prefix = pathlib.Path(folder)
        subprocess.run(["cmake", "--install", _build, "--component", "vexil3", "--prefix", folder], check=True,
                       stdout=subprocess.DEVNULL)
        program = unittest.main(exit=False, verbosity=2)
    sys.exit(0 if program.result.wasSuccessful() else 1)


if __name__ == "__main__":
    main()
