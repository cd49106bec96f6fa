#!/usr/bin/python3
"""A whole set-up by keyboard alone: choose a port, enable its output, name it, choose its target, apply, save."""

import accessible_test
import panel_test
import stored_configuration as stored
from private_desktop import wait_until


class Keyboard(panel_test.PanelTest):
    def tab_to(self, panel, name):
        """Presses Tab until the control has the keyboard focus; every control is reached within one round."""
        focused = self.focused(panel)
        for _ in accessible_test.TAB_ORDER:
            if focused == name:
                return
            panel.type("", "Tab")
            wait_until(lambda left=focused: self.focused(panel) != left, panel_test.PATIENCE, f"Tab to leave {focused}")
            focused = self.focused(panel)
        self.assertEqual(focused, name, "within one round of Tab")

    @staticmethod
    def focused(panel):
        """The name of the control with the keyboard focus. The list's row claims to have it all the time: it has it when no other does."""
        others = map(accessible_test.named, accessible_test.TAB_ORDER[1:])
        return next((name for name in others if panel.has_focus(name)), "Ports")

    def test_a_port_is_set_up_and_applied_without_the_mouse(self):
        panel = self.start()
        panel.activate()
        self.tab_to(panel, "Ports")
        panel.type("", "Down", "Down")
        self.tab_to(panel, "MIDI OUT")
        self.assertFalse(panel.is_checked("MIDI OUT"))
        panel.type("", "space")
        wait_until(lambda: panel.is_checked("MIDI OUT"), panel_test.PATIENCE, "MIDI OUT checked")
        self.tab_to(panel, "MIDI OUT Port display name")
        panel.type("Stage piano")
        self.tab_to(panel, "MIDI OUT Target computer name")
        panel.type("studio")
        self.tab_to(panel, "MIDI OUT Target port")
        panel.type("", "Up")
        self.tab_to(panel, "Apply")
        panel.type("", "space")
        panel.wait_enabled("Apply", False)
        self.assert_same_values(self.stored(), stored.defaults() | {
            "OutputPorts": stored.mask(0, 2), "03 Out_CustomName": "Stage piano", "03 DstHost": "studio",
            "03 PortFlags": stored.entry(0xC0, 2, 3)})
        path = self.desktop.home / "stage.vexil3"
        self.tab_to(panel, "Save")
        panel.type("", "space")
        self.enter_path(panel, path)
        wait_until(path.exists, panel_test.PATIENCE, "the settings file")
        lines = path.read_text().splitlines()
        place = lines.index("[Port_02]")
        self.assertEqual(lines[place + 1:place + 5], ["Properties=Output", "Flags=192", "SrcPort=2", "DstPort=3"])
        panel.type("", "ctrl+q")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)

    def test_a_target_is_chosen_from_the_list(self):
        self.start_driver("--host", "alpha", "--host", "beta")
        panel = self.start()
        panel.activate()
        self.tab_to(panel, "MIDI OUT Target computer name")
        panel.type("", "alt+Down", "Down", "Return")
        panel.wait_enabled("Apply")
        chosen = panel.text("MIDI OUT Target computer name")
        self.assertIn(chosen, ("alpha", "beta"))
        panel.type("", "alt+a")
        panel.wait_enabled("Apply", False)
        self.assertEqual(self.stored()["01 DstHost"], chosen)
        self.assert_quits(panel)

    def enter_path(self, panel, path):
        """Enters a path in the file chooser that is coming."""
        wait_until(lambda: len(panel.windows()) == 2, panel_test.PATIENCE, "the file chooser")
        panel.wait_active()
        panel.type(str(path), "Return")
        wait_until(lambda: len(panel.windows()) == 1, panel_test.PATIENCE, "the end of the file chooser")
        panel.wait_active()

    def test_alt_and_a_letter_press_the_three_commands_from_any_field(self):
        panel = self.start()
        panel.activate()
        path = self.desktop.home / "stage.vexil3"
        self.tab_to(panel, "MIDI OUT Port display name")
        panel.type("Piano", "alt+a")
        panel.wait_enabled("Apply", False)
        self.assertEqual(self.stored()["01 Out_CustomName"], "Piano")
        panel.type("", "alt+a")  # nothing to apply
        panel.type("", "alt+s")
        self.enter_path(panel, path)
        panel.type(" 2")
        panel.wait_enabled("Apply")
        panel.type("", "alt+l")
        self.enter_path(panel, path)
        panel.wait_enabled("Apply", False)
        self.assertEqual(panel.text("MIDI OUT Port display name"), "Piano")
        self.assert_quits(panel)


if __name__ == "__main__":
    panel_test.main()
