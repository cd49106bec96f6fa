#!/usr/bin/python3
"""What a person with assistive technology finds: every control under its name, with its role, its sentence, its label and its
place in the order of the Tab key."""

import panel_test
import stored_configuration as stored
from private_desktop import wait_until

# Number, name, role, and the name of its label where it has one. The combo boxes tell their names otherwise: what an
# editable one has for a name is its text.
CONTROLS = [
    (0, "Ports", "list", None),
    (1, "Local pipe (loopback) mode", "check box", None),
    (2, "About", "push button", None),
    (3, "MIDI IN", "check box", None),
    (4, "MIDI IN label: Port display name", "label", None),
    (5, "MIDI IN Port display name", "text", "MIDI IN label: Port display name"),
    (6, "MIDI IN Use source computer name", "check box", None),
    (7, "MIDI IN Source computer name", "combo box", None),
    (8, "MIDI IN Use source port", "check box", None),
    (9, "MIDI IN Source port number", "label", None),
    (10, "MIDI IN Source port", "spin button", "MIDI IN Source port number"),
    (11, "MIDI OUT", "check box", None),
    (12, "MIDI OUT label: Port display name", "label", None),
    (13, "MIDI OUT Port display name", "text", "MIDI OUT label: Port display name"),
    (14, "MIDI OUT label: Target computer name", "label", None),
    (15, "MIDI OUT Target computer name", "combo box", "MIDI OUT label: Target computer name"),
    (16, "MIDI OUT label: Target Port", "label", None),
    (17, "MIDI OUT Target port number", "label", None),
    (18, "MIDI OUT Target port", "spin button", "MIDI OUT label: Target Port"),
    (19, "MIDI OUT Send Immediately", "check box", None),
    (20, "MIDI OUT label: Test: MIDI Ch", "label", None),
    (21, "MIDI OUT Test MIDI channel number", "label", None),
    (22, "MIDI OUT Test MIDI channel", "spin button", "MIDI OUT label: Test: MIDI Ch"),
    (23, "MIDI OUT Play test chord", "push button", None),
    (24, "Settings", "panel", None),
    (25, "Show Connectors", "check box", None),
    (26, "Launch Monitor", "check box", None),
    (27, "Enable Logging", "check box", None),
    (28, "Use Wireless", "check box", None),
    (29, "Realtime Options", "panel", None),
    (30, "Label: Send Quantization Time, ms", "label", None),
    (31, "Send Quantization Time in ms", "label", None),
    (32, "Send Quantization Time", "slider", "Label: Send Quantization Time, ms"),
    (33, "Load", "push button", None),
    (34, "Save", "push button", None),
    (35, "Apply", "push button", None),
]
COMBO_BOXES = (7, 15)
# The line below the controls, without a driver.
STATUS_LINE = ("No driver is running", "push button")

# With a driver, an input and something to apply every control can be used; from left to right and from top to bottom, group by
# group, as the eye goes.
TAB_ORDER = [0, 1, 2, 3, 5, 6, 7, 8, 10, 11, 13, 15, 18, 19, 22, 23, 25, 26, 27, 28, 32, 33, 34, 35]


def named(number):
    return CONTROLS[number][1]


class Accessible(panel_test.PanelTest):
    def everything_of(self, accessible):
        """The window's accessible objects at any depth, but for what is inside lists and combo boxes."""
        for child in accessible:
            yield child
            if child.getRoleName() not in ("list", "combo box"):
                yield from self.everything_of(child)

    def by_number(self, panel):
        """Every control with its number, name and what the table above says its label is."""
        found = {(self.name_of(accessible), accessible.getRoleName()): accessible
                 for accessible in self.everything_of(panel.window)}
        for number, name, role, label in CONTROLS:
            yield number, name, found[name, role], label

    @staticmethod
    def name_of(accessible):
        return accessible.description if accessible.getRoleName() == "combo box" else accessible.name

    def start_with_line(self):
        """Starts the panel and waits for the line below the controls, which comes behind the window's first frame."""
        panel = self.start()
        wait_until(lambda: STATUS_LINE in {(each.name, each.getRoleName()) for each in panel.window}, panel_test.PATIENCE, "the line")
        return panel

    def test_every_control_is_there_once_with_its_name_and_role(self):
        panel = self.start_with_line()
        # What only holds others has no name.
        found = sorted((self.name_of(accessible), accessible.getRoleName())
                       for accessible in self.everything_of(panel.window) if accessible.getRoleName() != "filler")
        self.assertEqual(found, sorted([*((name, role) for _, name, role, _ in CONTROLS), STATUS_LINE]))
        self.assert_quits(panel)

    def test_window_is_known_as_one(self):
        panel = self.start()
        self.assertEqual((panel.window.name, panel.window.getRoleName()), ("Vexil III Control Panel", "frame"))
        self.assert_quits(panel)

    def test_fields_are_tied_to_their_labels(self):
        panel = self.start()
        for _, name, control, label in self.by_number(panel):
            labels = [relation.getTarget(index).name for relation in control.getRelationSet()
                      if relation.getRelationType().value_nick == "labelled-by"
                      for index in range(relation.getNTargets())]
            if label is None:
                self.assertEqual(labels, [], name)
            else:
                self.assertIn(label, labels)
        self.assert_quits(panel)

    def test_every_control_tells_what_it_is_for(self):
        panel = self.start()
        for number, name, control, _ in self.by_number(panel):
            if number in COMBO_BOXES:
                control = next(child for child in control if child.getRoleName() == "text")
            self.assertTrue(control.description.endswith("."), f"{name}: {control.description!r}")
        self.assert_quits(panel)

    def test_numbers_are_read_out_as_they_are_shown(self):
        panel = self.start()
        panel.toggle("MIDI IN")
        # A number is also a label of the control that sets it, so that its name finds that one.
        texts = {number: control for number, _, control, _ in self.by_number(panel)}
        panel.step(named(18))
        wait_until(lambda: texts[17].description.startswith("12. "), what="the target port's number")
        self.assertEqual(panel.value(named(18)), 12)
        panel.set_value(named(18), 21)
        wait_until(lambda: texts[17].description.startswith("21. "), what="the next target port")
        panel.step(named(18), up=False)
        wait_until(lambda: panel.value(named(18)) == 18, what="the number before 21")
        panel.set_value(named(32), 3.7)
        wait_until(lambda: texts[31].description.startswith("3.7. "), what="the quantization time")
        self.assertEqual(panel.value(named(32)), 3.7)
        panel.close()
        panel.answer("Settings have not been previously applied. Apply settings?", "Quit")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)

    def test_window_is_read_out_in_the_order_of_the_screen(self):
        panel = self.start_with_line()
        numbers = {(name, role): number for number, name, role, _ in CONTROLS} | {STATUS_LINE: len(CONTROLS)}
        found = [numbers[self.name_of(accessible), accessible.getRoleName()]
                 for accessible in self.everything_of(panel.window) if accessible.getRoleName() != "filler"]
        self.assertEqual(found, list(range(len(CONTROLS) + 1)))
        self.assert_quits(panel)

    def test_change_of_port_tells_once_of_each_text_that_is_another(self):
        import pyatspi
        from gi.repository import GLib
        values = stored.defaults()
        values.update({"01 DstHost": "alpha", "02 DstHost": "beta"})
        stored.store(self.desktop.preferences, values)
        self.start_driver("--host", "alpha", "--host", "beta", "--host", "gamma")
        panel = self.start()
        texts = []
        # Comes behind everything that came of the change of port.
        toggled = []
        for heard, kind in ((texts, "object:text-changed"), (toggled, "object:state-changed:checked")):
            listener = heard.append
            pyatspi.Registry.registerEventListener(listener, kind)
            self.addCleanup(pyatspi.Registry.deregisterEventListener, listener, kind)
        panel.select_port("Port 12")
        panel.toggle("Show Connectors")

        def has_heard():
            GLib.MainContext.default().iteration(False)
            return toggled
        wait_until(has_heard, panel_test.PATIENCE, "the click on the check box")
        fields = [panel.editable(named(number)) for number in COMBO_BOXES]
        told = [(named(number), event.type.minor, event.any_data) for event in texts
                for number, field in zip(COMBO_BOXES, fields) if event.source == field]
        self.assertEqual(told, [(named(15), "delete", "alpha"), (named(15), "insert", "beta")])

    def test_tab_goes_through_the_controls_in_a_natural_order_and_back(self):
        self.start_driver()
        panel = self.start()
        panel.toggle("MIDI IN")
        panel.toggle(named(6))
        panel.toggle(named(8))
        panel.wait_enabled("Apply")
        panel.activate()
        for step, order in (("Tab", TAB_ORDER), ("shift+Tab", [0, *reversed(TAB_ORDER[1:])])):
            for number in [*order, 0]:
                wait_until(lambda number=number: panel.has_focus(named(number)), what=f"{step} to {named(number)}")
                panel.type("", step)
            # One too far: back to the list.
            panel.type("", "shift+Tab" if step == "Tab" else "Tab")
            wait_until(lambda: panel.has_focus("Ports"), what="the list")
        panel.close()
        panel.answer("Settings have not been previously applied. Apply settings?", "Quit")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)


if __name__ == "__main__":
    panel_test.main()
