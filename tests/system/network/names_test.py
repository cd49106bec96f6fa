#!/usr/bin/python3
"""Usage: names_test.py VEXIL3D

Names that two computers have, and names that nobody has.
"""

import time

import network_bed
from network_bed import hearing

# No answer of the service takes longer, whatever it looks up.
LONGEST = 0.1
UNKNOWN = "attic-that-nobody-has.example"


class NamesTest(network_bed.NetworkTest):
    def remarks(self, computer):
        return computer.status()["network"]["remarks"]

    def test_of_two_computers_with_one_name_each_has_its_own_everywhere(self):
        laptop, one, other = self.computers("laptop", "studio", "studio")
        laptop.store()
        laptop.start_service("--network", "on")
        for studio in (one, other):
            studio.store(hearing(0))
            studio.start_service("--network", "on")
        for computer in (laptop, one, other):
            self.assertEqual(computer.panel().set(197), 0)
        self.wait(lambda: laptop.listed() == ["studio", "studio-2"], "both of them")
        for studio in (one, other):
            self.wait(lambda: studio.listed() == ["laptop", "studio-2"], "the other studio")
        for computer in (laptop, one, other):
            self.assertIn('More than one computer is called "studio".', self.remarks(computer))
        # The smaller id has the name; it is the beginning of the key.
        first = min((one, other), key=lambda each: each.status()["network"]["key"])
        laptop.open_test(2, "studio", 0)
        self.wait(lambda: laptop.is_up("studio"), "the connection")
        self.assertTrue(first.is_at(laptop.session("studio")["address"]))
        # Its key is the one of that name from now on, so the other one is not taken for it.
        laptop.open_test(3, "studio-2", 0)
        self.wait(lambda: 'Another key than before answers as "studio-2"' in laptop.reason(3), "the reason")

    def test_names_that_nobody_has_keep_nobody_waiting(self):
        laptop, = self.computers("laptop")
        laptop.store()
        laptop.start_service("--network", "on")
        longest = 0.0
        # A name as it is typed, a look-up that fails after each pause, and what a panel asks meanwhile.
        for length in range(1, len(UNKNOWN) + 1):
            for action in (lambda: laptop.open_test(3, UNKNOWN[:length], 0), lambda: laptop.panel().set(197), laptop.status):
                begun = time.monotonic()
                action()
                longest = max(longest, time.monotonic() - begun)
            if length % 10 == 0:
                self.wait(lambda: "No computer on the network" in laptop.reason(3), "the reason", seconds=60)
        self.assert_within(LONGEST, longest, "the longest answer of the service")


if __name__ == "__main__":
    network_bed.main()
