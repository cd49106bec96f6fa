#!/usr/bin/python3
"""Usage: silence_test.py VEXIL3D

Where the service may speak, and when it keeps silent, by what is seen on the wire.
"""

import time

import network_bed
import network_world
import running_service
from network_bed import hearing, note_off, note_on, to

# Longer than any of the times after which two computers that know each other send something.
LISTENING = 2.5
# By then a start has said all that it has to say; the kernel asks after its neighbours 5 s after the last packet.
START = 1.0


class SilenceTest(network_bed.NetworkTest):
    def setUp(self):
        super().setUp()
        self.laptop, self.studio = self.computers("laptop", "studio")
        self.capture = network_world.Capture(self.laptop)
        self.addCleanup(self.capture.close)

    def use_everything(self):
        """A route, a test output, a browse: all that would speak to another computer."""
        self.laptop.open_test(3, "studio", 0)
        self.laptop.play(3, note_on(60), note_off(60))
        self.assertEqual(self.laptop.panel().set(197), 0)
        self.laptop.open_test(4, self.studio.address, 0)

    def seen(self):
        """The interfaces on which programs of the laptop sent something."""
        return {interface for interface, frame in self.capture.take() if not network_world.is_of_kernel(frame)}

    def test_nothing_is_sent_while_the_network_is_off_as_it_is_unless_somebody_turns_it_on(self):
        self.laptop.store(to(self.studio, 0))
        self.laptop.start_service()
        self.use_everything()
        time.sleep(START)
        self.assertEqual(self.laptop.status()["network"]["speaks"], "off")
        self.laptop.service.end()
        self.assertEqual(self.seen(), set())

    def test_confined_to_loopback_not_one_packet_is_on_a_real_interface(self):
        self.laptop.store(to(self.studio, 0))
        self.laptop.start_service("--network", "lo")
        self.use_everything()
        time.sleep(START)
        self.assertEqual(self.laptop.status()["network"]["speaks"], "lo")
        self.laptop.service.end()
        self.assertEqual(self.seen(), {"lo"})

    def test_named_interfaces_are_the_only_ones_that_are_used(self):
        self.laptop.add_card("spare", "10.78.0.1")
        self.laptop.store(to(self.studio, 0))
        self.laptop.start_service("--network", "spare")
        self.use_everything()
        time.sleep(START)
        self.laptop.service.end()
        self.assertEqual(self.seen(), {"spare"})

    def test_without_a_remote_route_nothing_is_sent_between_the_start_and_the_end(self):
        self.studio.store(hearing(0))
        self.studio.start_service("--network", "on")
        self.laptop.store()
        self.laptop.start_service("--network", "on")
        self.assertEqual(self.laptop.panel().set(197), 0)
        self.wait(lambda: self.laptop.listed() == ["studio"], "the list")
        self.laptop.close_panel()
        time.sleep(START)
        self.assertIn("net0", self.seen())
        self.world.wire.forget()
        wake_ups = running_service.wake_ups(self.laptop.service.pid)
        time.sleep(LISTENING)
        self.assertEqual(running_service.wake_ups(self.laptop.service.pid), wake_ups)
        self.assertEqual(self.seen(), set())
        self.assertEqual(self.world.wire.seen_datagrams(), [])
        self.laptop.service.end()
        self.assertIn("net0", self.seen())


if __name__ == "__main__":
    network_bed.main()
