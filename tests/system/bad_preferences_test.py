#!/usr/bin/python3
"""Whatever is in the place of the stored configuration, the panel's window opens and works, one log line tells what was found,
and what was found is kept."""

import os
import plistlib
import shutil
import stat

import panel_test
import stored_configuration as stored

NAME = "MIDI OUT Port display name"
GOOD = plistlib.dumps(stored.full())
# Without them, root is refused what every other user is refused.
WITHOUT_ROOTS_RIGHTS = ("setpriv", "--bounding-set=-dac_override,-dac_read_search")


def nested(depth):
    """A property list of dictionaries within dictionaries."""
    head = b'<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n'
    return head + b"<dict><key>a</key>" * depth + b"<dict/>" + b"</dict>" * depth + b"\n</plist>\n"


class BadPreferences(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        self.path = stored.path(self.desktop.preferences)
        self.path.parent.mkdir(parents=True)

    def lines(self, panel):
        return [line for line in panel.log_lines() if "references" in line]

    def aside(self):
        """What was set aside."""
        return sorted(self.path.parent.glob(self.path.name + ".damaged-*"))

    def assert_works(self, panel):
        """The panel edits, applies and stores as ever."""
        panel.enter(NAME, "Stage piano")
        self.apply(panel)
        self.assert_same_values(self.stored(), stored.defaults() | {"01 Out_CustomName": "Stage piano"})
        self.assert_quits(panel)

    def assert_set_aside(self, content):
        """One line tells that the file was set aside; the panel works; the file is kept as it was."""
        panel = self.start()
        lines = self.lines(panel)
        self.assertEqual(len(lines), 1, lines)
        self.assertIn("set aside", lines[0])
        self.assert_works(panel)
        self.assertEqual(self.lines(panel), lines)
        kept = self.aside()
        self.assertEqual(len(kept), 1)
        self.assertEqual(kept[0].read_bytes(), content)

    def assert_file_set_aside(self, content):
        self.path.write_bytes(content)
        self.assert_set_aside(content)

    def test_a_damaged_file_is_set_aside(self):
        self.assert_file_set_aside(GOOD.replace(b"</key>", b"<key>", 1))

    def test_a_file_that_is_no_property_list_is_set_aside(self):
        self.assert_file_set_aside(b"MiscOptions=7\n")

    def test_an_empty_file_is_set_aside(self):
        self.assert_file_set_aside(b"")

    def test_a_truncated_file_is_set_aside(self):
        self.assert_file_set_aside(GOOD[:len(GOOD) // 2])

    def test_a_truncated_binary_file_is_set_aside(self):
        binary = plistlib.dumps(stored.full(), fmt=plistlib.FMT_BINARY)
        self.assert_file_set_aside(binary[:len(binary) // 2])

    def test_a_file_that_is_too_large_is_set_aside(self):
        self.assert_file_set_aside(plistlib.dumps(stored.full() | {"Ballast": b"x" * (1 << 20)}))

    def test_a_file_that_is_too_deep_is_set_aside(self):
        self.assert_file_set_aside(nested(100_000 // 25))

    def test_a_folder_in_the_files_place_is_set_aside(self):
        self.path.mkdir()
        (self.path / "kept").write_text("mine")
        panel = self.start()
        lines = self.lines(panel)
        self.assertEqual(len(lines), 1, lines)
        self.assert_works(panel)
        self.assertEqual([(folder / "kept").read_text() for folder in self.aside()], ["mine"])

    def test_a_pipe_in_the_files_place_is_set_aside(self):
        os.mkfifo(self.path)
        panel = self.start()
        lines = self.lines(panel)
        self.assertEqual(len(lines), 1, lines)
        self.assert_works(panel)
        self.assertEqual([stat.S_ISFIFO(pipe.lstat().st_mode) for pipe in self.aside()], [True])

    def test_a_symbolic_link_is_followed_and_the_file_it_leads_to_replaced(self):
        target = self.desktop.home / "elsewhere"
        target.write_bytes(GOOD)
        self.path.symlink_to(target)
        panel = self.start()
        self.assertEqual(self.lines(panel), [])
        panel.enter(NAME, "Stage piano")
        self.apply(panel)
        self.assert_quits(panel)
        self.assertEqual(self.path.readlink(), target)
        before = plistlib.loads(GOOD)
        self.assert_same_values(plistlib.loads(target.read_bytes()), before | {"01 Out_CustomName": "Stage piano"})
        self.assertEqual(self.aside(), [])

    def test_a_symbolic_link_to_a_folder_is_left_alone(self):
        self.path.symlink_to(self.desktop.home)
        panel = self.start()
        # The program's own write at its start fails as well, which is one line of its own.
        lines = [line for line in self.lines(panel) if "Cannot write preferences" not in line]
        self.assertEqual(len(lines), 1, lines)
        self.assertIn("not used: a symbolic link", lines[0])
        panel.enter(NAME, "Stage piano")
        panel.press("Apply")
        panel.answer(f"The settings could not be stored: what is in their place cannot be used: com.sonavert.Vexil3Driver", "Ok")
        self.assert_quits(panel)
        self.assertEqual(self.path.readlink(), self.desktop.home)

    def test_a_file_that_cannot_be_read_is_set_aside(self):
        self.path.write_bytes(GOOD)
        self.path.chmod(0)
        panel = self.start(prefix=WITHOUT_ROOTS_RIGHTS if os.geteuid() == 0 else ())
        lines = self.lines(panel)
        self.assertEqual(len(lines), 1, lines)
        self.assert_works(panel)
        kept = self.aside()
        self.assertEqual(len(kept), 1)
        kept[0].chmod(0o600)
        self.assertEqual(kept[0].read_bytes(), GOOD)

    def test_a_folder_that_cannot_be_written_keeps_the_damaged_file(self):
        damaged = GOOD[:100]
        self.path.write_bytes(damaged)
        self.path.parent.chmod(0o500)
        self.addCleanup(self.path.parent.chmod, 0o700)
        panel = self.start(prefix=WITHOUT_ROOTS_RIGHTS if os.geteuid() == 0 else ())
        panel.enter(NAME, "Stage piano")
        panel.wait_enabled("Apply")
        panel.press("Apply")
        panel.answer(f"The settings could not be stored: open lock: Permission denied (13): {self.path}", "Ok")
        self.assert_quits(panel)
        self.assertEqual(self.path.read_bytes(), damaged)
        self.assertEqual(self.aside(), [])

    def test_a_damaged_older_domain_is_kept(self):
        path = stored.path(self.desktop.preferences, stored.OLDER_DOMAIN)
        path.write_bytes(GOOD[:100])
        panel = self.start()
        lines = self.lines(panel)
        self.assertEqual(len(lines), 1, lines)
        self.assert_works(panel)
        self.assertEqual(path.read_bytes(), GOOD[:100])
        self.assertEqual(list(path.parent.glob(path.name + ".*")), [])

    def test_a_home_without_the_folder_gets_one(self):
        shutil.rmtree(self.desktop.home / ".config")
        panel = self.start()
        self.assertEqual(self.lines(panel), [])
        self.assert_works(panel)

    def test_a_home_that_does_not_exist_is_made(self):
        shutil.rmtree(self.desktop.home)
        panel = self.start()
        self.assertEqual(self.lines(panel), [])
        self.assert_works(panel)


if __name__ == "__main__":
    panel_test.main()
