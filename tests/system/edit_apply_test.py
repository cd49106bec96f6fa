#!/usr/bin/python3
"""The whole way of an edit: the window comes up, is used through assistive technology, applies and quits. What is stored is read
by another program, what the driver was told is compared to the byte."""

import plistlib

import panel_test
import stored_configuration as stored
from driver_requests import (attach, browse, close_test, open_test, quantization, read_hosts, reload,
                             wireless)

# What a start with the defaults tells the driver: the wireless mode, the host lists, the test output of port 11, which is
# enabled as output, and the send quantization time.
START = [attach(), wireless(False), browse(), read_hosts(), *open_test(0, stored.entry(0xC0, 0, 0)), quantization(2)]


class EditAndApply(panel_test.PanelTest):
    def test_a_panel_that_is_opened_and_closed_asks_nothing_and_changes_nothing(self):
        driver = self.start_driver()
        panel = self.start()
        self.assertFalse(panel.is_enabled("Apply"))
        self.assert_quits(panel)
        self.assert_requests(driver, START + [close_test(0)])
        # The wireless bit is cleared at the start and put back at the end, in a store that had nothing.
        self.assert_same_values(self.stored(), {"MiscOptions": 0})

    def test_an_edit_is_stored_and_announced_by_apply(self):
        driver = self.start_driver()
        panel = self.start()
        panel.enter("MIDI OUT Port display name", "Stage piano")
        self.apply(panel)
        self.assert_quits(panel)
        self.assert_requests(driver, START + [reload(), close_test(0)])
        self.assert_same_values(self.stored(), stored.defaults() | {"01 Out_CustomName": "Stage piano"})

    def test_every_kind_of_edit_reaches_the_record_and_the_driver(self):
        driver = self.start_driver()
        panel = self.start()
        told = list(START)

        panel.select_port("Port 12")
        told += [close_test(0), browse(), read_hosts()]

        panel.toggle("MIDI OUT")
        told += [browse(), read_hosts(), *open_test(1, stored.entry(0xC0, 1, 1))]
        panel.enter("MIDI OUT Port display name", "Klavier \u00fcber Netz")
        panel.enter("MIDI OUT Target computer name", "studio")
        told += [close_test(1), *open_test(1, stored.entry(0xC0, 1, 1), target="studio")]
        panel.step("MIDI OUT Target port")
        told += [close_test(1), *open_test(1, stored.entry(0xC0, 1, 2), target="studio")]
        panel.toggle("MIDI OUT Send Immediately")
        told += [close_test(1), *open_test(1, stored.entry(0xC1, 1, 2), target="studio")]

        panel.toggle("MIDI IN")
        told += [browse(), read_hosts()]
        panel.enter("MIDI IN Port display name", "Keyboard")
        panel.toggle("MIDI IN Use source computer name")
        panel.enter("MIDI IN Source computer name", "stage")
        panel.toggle("MIDI IN Use source port")
        panel.step("MIDI IN Source port")

        panel.toggle("Local pipe (loopback) mode")
        told += [close_test(1)]
        panel.toggle("Local pipe (loopback) mode")
        told += [*open_test(1, stored.entry(0x01, 2, 2), target="studio", source="stage")]

        panel.toggle("Launch Monitor")
        told += [quantization(2)]  # sent again whenever the options are shown
        panel.step("Send Quantization Time")
        told += [quantization(3)]

        self.apply(panel)
        told += [reload()]
        self.assert_quits(panel)
        told += [close_test(1)]

        self.assert_requests(driver, told)
        self.assert_same_values(self.stored(), stored.defaults() | {
            "InputPorts": stored.mask(1), "OutputPorts": stored.mask(0, 1), "MiscOptions": 5, "SendGranularity": 3,
            "02 PortFlags": stored.entry(0x01, 2, 2), "02 In_CustomName": "Keyboard",
            "02 Out_CustomName": "Klavier \u00fcber Netz", "02 SrcHost": "stage", "02 DstHost": "studio"})
        self.assertEqual(len(self.stored()), 325)

    def test_everything_is_found_again_as_it_was_left(self):
        values = stored.full()
        stored.store(self.desktop.preferences, values)
        before = stored.path(self.desktop.preferences).read_bytes()
        panel = self.start()
        self.assertEqual(panel.text("MIDI IN Port display name"), "Keyboard 01")
        self.assertEqual(panel.text("MIDI OUT Target computer name"), "studio-0")
        self.assertTrue(panel.is_checked("MIDI IN"))
        self.assert_quits(panel)
        self.assertEqual(stored.path(self.desktop.preferences).read_bytes(), before)

    def test_the_older_domain_is_taken_over_and_left_alone(self):
        older = {
            "ActiveDevices": 0, "ActiveDevices01": 1 << 0 | 1 << 16 | 1 << 17, "ActiveDevices02": 0,
            "ActiveDevices03": 0, "MiscOptions": 5, "03 In_FromPort": stored.signed(0x40 << 24 | 9), "03 Out_ToPort": 17,
            "03 In_CustomName": "Old keyboard", "64 Out_CustomName": "Old sound module",
        }
        stored.store(self.desktop.preferences, older, stored.OLDER_DOMAIN, plistlib.FMT_BINARY)
        path = stored.path(self.desktop.preferences, stored.OLDER_DOMAIN)
        before = path.read_bytes()
        self.assertTrue(before.startswith(b"bplist00"))
        panel = self.start()
        panel.enter("MIDI OUT Port display name", "New")
        self.apply(panel)
        self.assert_quits(panel)
        self.assert_same_values(self.stored(), stored.defaults() | {
            "InputPorts": stored.mask(16, 17), "OutputPorts": stored.mask(0, 16), "MiscOptions": 5,
            "01 Out_CustomName": "New", "03 PortFlags": stored.entry(0x40, 9, 17),
            "03 In_CustomName": "Old keyboard", "64 Out_CustomName": "Old sound module"})
        self.assertEqual(path.read_bytes(), before)

    def test_wireless_is_stored_at_the_end_and_told_at_the_next_start(self):
        driver = self.start_driver()
        panel = self.start()
        panel.toggle("Use Wireless")
        panel.wait_enabled("Apply")
        panel.press("Apply")
        panel.answer('"Use Wireless" option has been changed!', "Ok")
        panel.wait_enabled("Apply", False)
        self.assertEqual(self.stored()["MiscOptions"], 7)
        self.assert_quits(panel)
        self.assertEqual(self.stored()["MiscOptions"], 15)
        driver.forget()
        self.assert_quits(self.start())
        self.assertEqual(driver.requests()[:2], [attach(), wireless(True)])

    def test_closing_with_unapplied_changes_asks_and_goes_by_the_answer(self):
        panel = self.start()
        panel.enter("MIDI OUT Port display name", "Changed")
        question = "Settings have not been previously applied. Apply settings?"
        panel.wait_enabled("Apply")
        panel.close()
        panel.answer(question, "Cancel")
        self.assertIsNone(panel.process.poll())
        self.assertTrue(panel.is_enabled("Apply"))
        panel.close()
        panel.answer(question, "Apply and Quit")
        self.assertEqual(panel.process.wait(panel_test.PATIENCE), 0)
        self.assert_same_values(self.stored(), stored.defaults() | {"01 Out_CustomName": "Changed"})


if __name__ == "__main__":
    panel_test.main()
