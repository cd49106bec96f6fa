#!/usr/bin/python3
"""Load and Save with the desktop's own file chooser and with the toolkit's: what is asked before a file is replaced, where they open,
what has the keyboard afterwards, and in which language they are."""

import json
import pathlib
import subprocess
import sys

import file_portal
import input_method
import panel_test
from private_desktop import SKIPPED, end, wait_until

NAME = "MIDI OUT Port display name"
DESKTOPS_CHOOSER = {"QT_QPA_PLATFORMTHEME": "xdgdesktopportal"}
INPUT_METHOD = {"QT_IM_MODULE": "ibus", "IBUS_USE_PORTAL": "1"}
TOOLKIT = pathlib.Path("/usr")


def missing():
    """What this computer lacks of the toolkit's additions, as a text."""
    theme = list(TOOLKIT.glob("lib*/**/platformthemes/libqxdgdesktopportal.so"))
    words = list(TOOLKIT.glob("share/qt6/translations/qtbase_de.qm"))
    return ", ".join(name for name, found in (("the toolkit's theme for portals", theme), ("its German words", words)) if not found)


class StandIn:
    """A running stand-in that writes lines."""

    def __init__(self, test, program, *options):
        self.process = test.desktop.start(["/usr/bin/python3", str(pathlib.Path(program.__file__)), *options],
                                          stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        test.addCleanup(self.process.stdout.close)
        test.addCleanup(self.process.stdin.close)
        test.addCleanup(end, self.process)
        test.assertEqual(self.line(), "ready\n")

    def line(self):
        return self.process.stdout.readline()

    def question(self):
        return json.loads(self.line())

    def answer(self, path):
        self.process.stdin.write(f"{path}\n")
        self.process.stdin.flush()


class DesktopsChooser(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        self.portal = StandIn(self, file_portal)
        self.file = self.desktop.home / "mine.vexil3"

    def start_panel(self):
        return self.start(DESKTOPS_CHOOSER)

    def ask_for(self, panel, button, path):
        """Presses Load or Save and answers the chooser. Returns what the chooser was asked."""
        panel.press(button)
        question = self.portal.question()
        self.portal.answer(path)
        return question

    def test_save_asks_before_it_replaces_a_file_whose_name_was_typed_without_its_ending(self):
        self.file.write_text("; kept\n")
        panel = self.start_panel()
        self.assertEqual(self.ask_for(panel, "Save", self.file.with_suffix(""))["method"], "SaveFile")
        question = "mine.vexil3 already exists.\nDo you want to replace it?"
        panel.answer(question, "No")
        # The chooser comes again, where it was.
        self.assertEqual(self.portal.question(),
                         {"method": "SaveFile", "folder": str(self.desktop.home), "name": "mine.vexil3"})
        self.portal.answer("")
        wait_until(lambda: panel.windows() == [panel.window], panel_test.PATIENCE, "the end of the chooser")
        self.assertEqual(self.file.read_text(), "; kept\n")

        self.ask_for(panel, "Save", self.file.with_suffix(""))
        panel.answer(question, "Yes")
        wait_until(lambda: "[Port_63]" in self.file.read_text(), panel_test.PATIENCE, "the settings")
        self.assert_quits(panel)

    def test_save_does_not_ask_again_about_the_file_that_the_chooser_has_asked_about(self):
        self.file.write_text("; kept\n")
        panel = self.start_panel()
        self.ask_for(panel, "Save", self.file)
        wait_until(lambda: "[Port_63]" in self.file.read_text(), panel_test.PATIENCE, "the settings")
        self.assert_quits(panel)

    def test_save_under_a_new_name_completes_it_and_asks_nothing(self):
        panel = self.start_panel()
        self.ask_for(panel, "Save", self.file.with_suffix(""))
        wait_until(lambda: self.file.exists() and "[Port_63]" in self.file.read_text(), panel_test.PATIENCE, "the settings")
        self.assertFalse(self.file.with_suffix("").exists())
        self.assert_quits(panel)

    def test_folder_is_remembered_by_the_next_session(self):
        folder = self.desktop.home / "My studio"
        folder.mkdir()
        panel = self.start_panel()
        first = self.ask_for(panel, "Save", folder / "a.vexil3")
        wait_until((folder / "a.vexil3").exists, panel_test.PATIENCE, "the settings")
        self.assert_quits(panel)
        self.assertEqual(first["folder"], str(self.desktop.home), "without a documents folder")
        panel = self.start_panel()
        # Of the two questions only this one tells its folder to the portal.
        self.assertEqual(self.ask_for(panel, "Save", "")["folder"], str(folder))
        self.assert_quits(panel)
        self.assertTrue((self.desktop.home / ".local/state/vexil3/panel.ini").exists())
        self.assertEqual(sorted(self.stored()), ["MiscOptions"], "no preference")


class ToolkitsChooser(panel_test.PanelTest):
    def choose(self, panel, button, path):
        panel.press(button)
        wait_until(lambda: len(panel.windows()) == 2, panel_test.PATIENCE, "the file chooser")
        panel.wait_active()
        chooser = next(window for window in panel.windows() if window != panel.window)
        name = panel.control("File name:", chooser)
        # The last keys come at once, so that the input method still has the others when the chooser closes.
        name.queryEditableText().setTextContents(str(path)[:-2])
        panel.type(str(path)[-2:], "Return")
        wait_until(lambda: len(panel.windows()) == 1, panel_test.PATIENCE, "the end of the file chooser")

    def test_field_has_the_keyboard_again_after_a_load_with_an_input_method(self):
        StandIn(self, input_method, "--idle")
        panel = self.start(INPUT_METHOD)
        path = self.desktop.home / "m.vexil3"
        path.write_text("[Port_00]\nOutName=loaded\n")
        panel.activate()
        panel.click(panel.control(NAME))
        wait_until(lambda: panel.has_focus(NAME), panel_test.PATIENCE, "the field")
        for _ in range(5):
            self.choose(panel, "Load", path)
            wait_until(lambda: panel.has_focus(NAME), panel_test.PATIENCE, "the focus in the field again")
        panel.type("", "End")
        panel.type("12")
        wait_until(lambda: panel.text(NAME) == "loaded12", panel_test.PATIENCE, "what was typed in the field")

    def test_chooser_speaks_the_users_language(self):
        panel = self.start({"LANG": "de_DE.UTF-8", "LC_ALL": None, "LANGUAGE": None})
        panel.press("Load")
        wait_until(lambda: len(panel.windows()) == 2, panel_test.PATIENCE, "the file chooser")
        chooser = next(window for window in panel.windows() if window != panel.window)
        panel.press("Abbrechen", chooser)
        wait_until(lambda: len(panel.windows()) == 1, panel_test.PATIENCE, "the end of the file chooser")
        # The numbers of the panel stay as they are stored.
        panel.step("Send Quantization Time")
        number = self.label(panel.window, "Send Quantization Time in ms")
        wait_until(lambda: number.description.startswith("0.3. "), panel_test.PATIENCE, "the number with its point")

    def label(self, accessible, name):
        """A number itself; it is a label of the control that sets it, too."""
        for child in accessible:
            if child.getRoleName() == "label" and child.name == name:
                return child
            found = self.label(child, name)
            if found:
                return found
        return None


if __name__ == "__main__":
    if missing():
        print(f"Skipped: missing: {missing()}")
        sys.exit(SKIPPED)
    panel_test.main()
