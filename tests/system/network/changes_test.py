#!/usr/bin/python3
"""Usage: changes_test.py VEXIL3D MUSIC_PROGRAM [STARTS]

What people change while they play: configurations on both sides, addresses; and computers that start at the same moment:
STARTS times, 3 unless given.
"""

import sys
import time

import network_bed
import stored_configuration as stored
from network_bed import hearing, note_off, note_on, to

CHORD = (note_on(60), note_on(64))
NOTE = note_on(72)
starts = 3


class ChangesTest(network_bed.NetworkTest):
    def play_chords(self):
        """Two outputs of the laptop each hold a chord at an input of the studio."""
        self.laptop, self.studio = self.computers("laptop", "studio", ip6=False)
        self.studio.store(hearing(0, 1, 2))
        self.heard = network_bed.Heard(self.ears_of(self.studio, 3))
        self.laptop.store(to(self.studio, 0, 1))
        self.player = self.player_on(self.laptop, 2)
        for port in (0, 1):
            self.wait(lambda: self.laptop.reason(port, "output") == "", "the way")
            self.wait_carried(self.heard.program, port, lambda message, writer=port: self.player.write(message, writer=writer))
            self.player.write(*CHORD, writer=port)
            self.heard.wait_messages(port, *CHORD)

    def apply(self, computer, values):
        computer.store(values)
        self.assertEqual(computer.panel().set(190), 0)

    def test_what_is_applied_while_notes_sound_ends_only_what_it_changes(self):
        self.play_chords()
        self.apply(self.laptop, to(self.studio, 0, 2))
        self.heard.wait_released(1, CHORD)
        self.wait(lambda: self.laptop.reason(1, "output") == "", "the new way")
        self.player.write(NOTE, writer=1)
        self.player.write(NOTE, writer=0)
        self.heard.wait_messages(2, NOTE)
        self.heard.wait_messages(0, *CHORD, NOTE)

        # The listener changes what one of its inputs hears.
        self.apply(self.studio, {**hearing(0, 1, 2), "03 PortFlags": stored.entry(0x40), "03 SrcHost": "barn"})
        self.heard.wait_released(2, (NOTE,))
        self.wait(lambda: self.laptop.reason(1, "output") == 'Port 13 of "studio" listens to another computer.', "the reason")
        self.player.write(note_off(72), writer=0)
        self.heard.wait_messages(0, *CHORD, NOTE, note_off(72))

    def test_a_computer_with_a_new_address_plays_on(self):
        self.play_chords()
        self.laptop.change_address("10.77.0.99")
        changed = time.monotonic()
        self.player.write(NOTE)
        self.heard.program.wait(lambda: NOTE in self.heard.messages(0), "the note")
        self.assert_within(2.0, self.heard.at(0)[-1][0] - changed, "the note from the new address")
        self.assertEqual(self.heard.messages(0), [*CHORD, NOTE])
        self.wait(lambda: self.studio.session("laptop")["address"] == "10.77.0.99:11188", "the studio says so")
        self.player.write(note_off(60), note_off(64), note_off(72))
        self.player.write(note_off(60), note_off(64), writer=1)
        for port in (0, 1):
            self.wait(lambda: self.heard.program.sounding(port) == "", "silence")

    @staticmethod
    def have_one_connection(*computers):
        for computer in computers:
            sessions = computer.status()["sessions"]
            if [session["state"] for session in sessions] != ["up"] or len(sessions[0]["ways"]) != 2:
                return False
        return all(computer.reason(0, "output") == "" for computer in computers)

    def test_two_that_start_at_once_have_one_connection(self):
        laptop, studio = self.computers("laptop", "studio")
        laptop.store({**to(studio, 0), "InputPorts": stored.mask(0)})
        studio.store({**to(laptop, 0), "InputPorts": stored.mask(0)})
        for _ in range(starts):
            self.world.wire.forget()
            for computer in (laptop, studio):
                computer.start_service("--network", "on", wait=False)
            self.wait(lambda: self.world.wire.seen_datagrams(laptop) and self.world.wire.seen_datagrams(studio), "both speak")
            both = max(self.world.wire.seen_datagrams(each)[0].time for each in (laptop, studio))
            self.wait(lambda: laptop.is_serving() and studio.is_serving(), "the services")
            # Of two calls that cross one gives way, and its session ends when both are up.
            up = self.wait(lambda: self.have_one_connection(laptop, studio), "one connection with both ways")
            self.assert_within(1.0, up - both, "both ways are open")
            for computer in (laptop, studio):
                self.assertEqual(computer.service.end(), 0)


if __name__ == "__main__":
    starts = int(sys.argv.pop(3)) if len(sys.argv) > 3 and sys.argv[3].isdigit() else starts
    network_bed.main(needs_ears=True)
