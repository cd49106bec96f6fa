#!/usr/bin/python3
"""Usage: reasons_test.py VEXIL3D

Whoever hears nothing is told why: each reason is provoked once, and what both computers say of it is compared.
"""

import json

import network_bed
import stored_configuration as stored
from network_bed import hearing

TEST = 5


class ReasonsTest(network_bed.NetworkTest):
    def start(self, studio_values):
        self.laptop, self.studio = self.computers("laptop", "studio")
        self.laptop.store()
        self.laptop.start_service("--network", "on")
        self.studio.store(studio_values)
        self.studio.start_service("--network", "on")

    def play_to(self, port, target="studio"):
        self.laptop.open_test(TEST, target, port)

    def wait_said(self, sentence):
        self.wait(lambda: self.laptop.reason(TEST) == sentence, sentence)

    def there(self):
        """What the studio says of the way that comes in."""
        session = self.studio.session("laptop")
        return [way["problem"] for way in session["ways"] if way["incoming"]] if session else []

    def command(self, computer, *words):
        self.assertIn("done", json.loads(computer.ask(*words)))

    def test_every_reason_that_an_input_can_give_is_said_on_both_sides(self):
        self.start({**hearing(1, 2, 3), "LocalPipes": stored.mask(3),
                    "02 PortFlags": stored.entry(0x40), "02 SrcHost": "barn",
                    "03 PortFlags": stored.entry(0x80, 9)})
        for port, reason in ((0, "is not enabled as MIDI IN."), (1, "listens to another computer."),
                             (2, "listens to another port."), (3, "is a local pipe, which hears only itself.")):
            with self.subTest(reason):
                sentence = f'Port {port + 11} of "studio" {reason}'
                self.play_to(port)
                self.wait_said(sentence)
                self.wait(lambda: self.there() == [sentence], "the same over there")

    def test_a_target_that_nobody_is_or_that_does_not_answer_is_named(self):
        self.start(hearing(0))
        self.play_to(0, "attic")
        self.wait_said('No computer on the network is called "attic".')
        self.play_to(0, "10.77.0.200")
        self.wait_said('The computer "10.77.0.200" does not answer.')

    def test_a_blocked_computer_says_so(self):
        self.start(hearing(0))
        self.play_to(0)
        self.wait_heard_there(self.laptop, TEST)
        self.command(self.studio, "block", "laptop")
        self.wait_said('"studio" does not let this computer in.')

    def test_a_secret_that_is_missing_or_another_one_is_said(self):
        self.start(hearing(0))
        self.play_to(0)
        self.wait_heard_there(self.laptop, TEST)
        self.command(self.studio, "secret", "eight and more")
        self.wait_said('"studio" wants a secret, and none is set here.')
        self.command(self.laptop, "secret", "not the same")
        self.wait_said('Another secret is set on "studio".')
        self.command(self.laptop, "secret", "eight and more")
        self.wait_heard_there(self.laptop, TEST)

    def test_another_key_under_a_known_name_is_refused_and_named_on_both_sides(self):
        self.start(hearing(0))
        self.play_to(0)
        self.wait_heard_there(self.laptop, TEST)
        self.command(self.laptop, "new-key")
        self.wait_said('"studio" knows this computer by another key; "vexil3ctl network pin" over there accepts the new one.')
        self.wait(lambda: any("another key than before" in remark for remark in self.studio.status()["network"]["remarks"]),
                  "the remark over there")
        self.command(self.studio, "pin", "laptop")
        self.wait(lambda: not any("another key than before" in remark for remark in self.studio.status()["network"]["remarks"]),
                  "the end of the remark")


if __name__ == "__main__":
    network_bed.main()
