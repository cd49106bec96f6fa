#!/usr/bin/python3
"""Usage: wire_faults_test.py VEXIL3D [SECONDS]

Networks that lose, delay, double and overtake packets, or have a firewall on the way. SECONDS: how long a lossy
network is played through, 2 unless given.
"""

import sys
import time

import network_bed
import stored_configuration as stored
from network_bed import hearing, note_off, note_on

PORTS = 8
TEST = 5
seconds = 2.0


class WireFaultsTest(network_bed.NetworkTest):
    def play_through(self, **faults):
        """All that is played to eight inputs gets there, and once, whatever the wire does."""
        laptop, studio = self.computers("laptop", "studio")
        studio.store(hearing(*range(PORTS)))
        studio.start_service("--network", "on")
        laptop.store()
        laptop.start_service("--network", "on")
        for port in range(PORTS):
            laptop.open_test(port, "studio", port)
        for port in range(PORTS):
            self.wait_heard_there(laptop, port)
        self.world.wire.both_ways(laptop, studio, **faults)
        end = time.monotonic() + seconds
        count = 0
        while time.monotonic() < end:
            for port in range(PORTS):
                laptop.play(port, bytes((0xE0, count & 0x7F, count >> 7 & 0x7F)))
            count += 1
            time.sleep(0.005)
        def heard():
            return [port["input"]["messages"] for port in studio.status()["ports"]]
        self.wait(lambda: min(heard()) >= count, f"all of {count}")
        # What is sent again is all there by now.
        self.wait(lambda: self.wire_rests(laptop), "a wire at rest")
        self.assertEqual(heard(), [count] * PORTS)
        session = laptop.session("studio")
        self.assertEqual((session["state"], session["lost"]), ("up", 0))
        return session

    def test_a_tenth_of_the_packets_lost_both_ways_loses_and_doubles_nothing(self):
        self.assertGreater(self.play_through(loss=0.1)["repaired"], 0)

    def test_packets_that_are_delayed_doubled_and_overtaken_lose_and_double_nothing(self):
        self.play_through(delay=0.02, jitter=0.015, duplicates=0.1)

    def wire_rests(self, computer):
        """Whether a computer has sent nothing for a fifth of a second."""
        return time.monotonic() - self.world.wire.seen(computer)[-1].time > 0.2

    def two(self):
        laptop, studio = self.computers("laptop", "studio")
        laptop.store()
        laptop.start_service("--network", "on")
        studio.store(hearing(0))
        return laptop, studio

    def test_a_firewall_that_keeps_state_is_opened_by_the_computers_own_call_and_serves_both_directions(self):
        laptop, studio = self.two()
        # The studio plays to the laptop, which has no route of its own to it.
        studio.firewall.on = True
        # By its address: answers to a question that went to everybody do not come through such a firewall.
        studio.store({"OutputPorts": stored.mask(0), "InputPorts": stored.mask(0), "01 DstHost": laptop.address})
        studio.start_service("--network", "on")
        laptop.store(hearing(0))
        self.assertEqual(laptop.panel().set(190), 0)
        self.wait_heard_there(studio, 0, "output")
        laptop.open_test(TEST, "studio", 0)
        self.wait_heard_there(laptop, TEST)
        laptop.play(TEST, note_on(60), note_off(60))
        self.wait(lambda: studio.status()["ports"][0]["input"]["messages"] == 2, "the note through the firewall")

    def test_on_a_wire_that_carries_one_way_only_each_side_says_which_within_three_seconds(self):
        laptop, studio = self.two()
        studio.start_service("--network", "on")
        # Each plays to the other, so each has a reason to give.
        laptop.store(hearing(0))
        self.assertEqual(laptop.panel().set(190), 0)
        laptop.open_test(TEST, "studio", 0)
        studio.open_test(TEST, "laptop", 0)
        for computer in (laptop, studio):
            self.wait_heard_there(computer, TEST)
        self.world.wire.between(studio, laptop).out = True
        cut = time.monotonic()
        for computer, reason in ((laptop, 'The computer "studio" is no longer heard.'),
                                 (studio, 'The computer "laptop" no longer hears this one.')):
            said = self.wait(lambda: computer.reason(TEST) == reason, reason)
            self.assert_within(3.0, said - cut, reason)
            self.assertEqual(computer.session(laptop.name if computer is studio else studio.name)["state"], "lost")
        self.world.wire.between(studio, laptop).out = False
        for computer in (laptop, studio):
            self.wait_heard_there(computer, TEST)


if __name__ == "__main__":
    seconds = float(sys.argv.pop(2)) if len(sys.argv) > 2 and sys.argv[2][0].isdigit() else seconds
    network_bed.main()
