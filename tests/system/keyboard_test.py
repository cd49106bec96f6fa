#!/usr/bin/python3
"""A whole set-up by keyboard alone: choose a port, enable its output, name it, choose its target, apply."""

import panel_test
import stored_configuration as stored
from private_desktop import wait_until


class Keyboard(panel_test.PanelTest):
    def tab_to(self, panel, name):
        """Presses Tab until the control has the keyboard focus; every control is reached within one round."""
        for _ in range(40):
            if panel.has_focus(name):
                return
            panel.type("", "Tab")
        self.fail(f"Tab does not reach {name}")

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
        self.assert_quits(panel)


if __name__ == "__main__":
    panel_test.main()
