#!/usr/bin/python3
"""Save, edit, Load and Apply with real file choosers; the files are compared byte for byte."""

import panel_test
import stored_configuration as stored

NAME = "MIDI OUT Port display name"


def settings_file(values):
    """The text of a settings file that holds a stored configuration."""
    lines = ["[Options]"]
    for bit, key in enumerate(("ShowEndpoints", "LaunchMonitor", "EnableLogging", "UseWireless")):
        lines.append(f"{key}={values['MiscOptions'] >> bit & 1}")
    lines += ["[General]", f"SendGranularity={values['SendGranularity']}"]
    masks = [(role, int.from_bytes(values[key], "little"))
             for role, key in (("Input", "InputPorts"), ("Output", "OutputPorts"), ("Pipe", "LocalPipes"))]
    for port in range(stored.PORTS):
        number = f"{port + 1:02d}"
        lines.append(f"[Port_{port:02d}]")
        roles = [role for role, ports in masks if ports >> port & 1]
        flags, _, source, target = (values[f"{number} PortFlags"] % (1 << 32)).to_bytes(4, "little")
        for key, value in (("Properties", ",".join(roles)), ("Flags", str(flags)), ("SrcPort", str(source)),
                           ("DstPort", str(target)), ("SrcName", values[f"{number} SrcHost"]),
                           ("DstName", values[f"{number} DstHost"]),
                           ("InpName", values[f"{number} In_CustomName"]),
                           ("OutName", values[f"{number} Out_CustomName"])):
            if value:
                lines.append(f"{key}={value}")
    return "".join(line + "\n" for line in lines)


class SettingsFiles(panel_test.PanelTest):
    def choose(self, panel, button, path):
        """Presses Load or Save and enters a path in the file chooser."""
        from private_desktop import wait_until
        before = len(panel.windows())
        panel.press(button)
        wait_until(lambda: len(panel.windows()) > before, panel_test.PATIENCE, "the file chooser")
        panel.wait_active()
        panel.type(str(path), "Return")
        wait_until(lambda: len(panel.windows()) == before, panel_test.PATIENCE, "the end of the file chooser")

    def test_what_was_saved_comes_back_by_load_and_is_kept_by_apply(self):
        values = stored.full()
        stored.store(self.desktop.preferences, values)
        first, second, third = (self.desktop.home / f"{name}.vexil3" for name in ("first", "second", "third"))
        panel = self.start()
        self.choose(panel, "Save", first)
        self.assertEqual(first.read_text(), settings_file(values))

        panel.enter(NAME, "Edited")
        self.choose(panel, "Save", second)
        self.assertEqual(second.read_text(), settings_file(values | {"01 Out_CustomName": "Edited"}))

        self.choose(panel, "Load", first)
        panel.wait_enabled("Apply", False)
        self.assertEqual(panel.text(NAME), values["01 Out_CustomName"])

        self.choose(panel, "Load", second)
        self.assertEqual(panel.text(NAME), "Edited")
        self.apply(panel)
        self.assert_same_values(self.stored(), values | {"01 Out_CustomName": "Edited"})
        self.choose(panel, "Save", third)
        self.assertEqual(third.read_bytes(), second.read_bytes())
        self.assert_quits(panel)

    def test_saving_over_a_file_keeps_its_other_lines_and_edits_in_place(self):
        values = stored.defaults()
        path = self.desktop.home / "mine.vexil3"
        by_hand = "; my studio\n[Notes]\nroom=upstairs\n\n"
        path.write_text(by_hand + settings_file(values).replace("SendGranularity=2", "SendGranularity = 55"))
        inode = path.stat().st_ino
        panel = self.start()
        self.choose_over(panel, path)
        self.assertEqual(path.read_text(), by_hand + settings_file(values))
        self.assertEqual(path.stat().st_ino, inode)
        self.assert_quits(panel)

    def choose_over(self, panel, path):
        """Saves over an existing file, answering the chooser's question with Yes."""
        from private_desktop import wait_until
        before = len(panel.windows())
        panel.press("Save")
        wait_until(lambda: len(panel.windows()) > before, panel_test.PATIENCE, "the file chooser")
        panel.wait_active()
        panel.type(str(path), "Return")
        wait_until(lambda: len(panel.windows()) > before + 1, panel_test.PATIENCE, "the question")
        panel.wait_active()
        panel.type("", "alt+y")
        wait_until(lambda: len(panel.windows()) == before, panel_test.PATIENCE, "the end of the file chooser")

    def test_cancel_leaves_no_file_and_no_change(self):
        from private_desktop import wait_until
        panel = self.start()
        for button in ("Save", "Load"):
            before = len(panel.windows())
            panel.press(button)
            wait_until(lambda: len(panel.windows()) > before, panel_test.PATIENCE, "the file chooser")
            panel.wait_active()
            panel.type("", "Escape")
            wait_until(lambda: len(panel.windows()) == before, panel_test.PATIENCE, "the end of the file chooser")
        self.assertFalse(panel.is_enabled("Apply"))
        self.assertEqual(list(self.desktop.home.rglob("*.vexil3")), [])
        self.assert_quits(panel)


if __name__ == "__main__":
    panel_test.main()
