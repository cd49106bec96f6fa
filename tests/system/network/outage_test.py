#!/usr/bin/python3
"""Usage: outage_test.py VEXIL3D MUSIC_PROGRAM

Cables that come out, and computers that fall silent, come back or end, while a chord of theirs sounds elsewhere.
"""

import signal
import time

import network_bed
from network_bed import hearing, is_release, note_off, note_on, on_channel
from stopwatch import Stopwatch

CHORD = (note_on(60), note_on(64), note_on(67))
LATER = note_on(72)
NOTE = note_on(48)
TEST = 5  # port of the test outputs that play
# A peer that is silent for so long is lost, and what it had sounding is let go.
LOST = 2.0
RELEASED = 2.3
BACK = 2.0


class OutageTest(network_bed.NetworkTest):
    def hold_chords(self, *names):
        """Computers that each hold a chord at an input of the studio, on a channel of its own, and what a music program hears of each.
        One input is enough: on a busy machine JACK can stall where several ports are connected one by one."""
        self.studio, *players = self.computers("studio", *names)
        self.studio.store(hearing(0))
        program = self.ears_of(self.studio)
        self.heard = [network_bed.Heard(program, channel) for channel in range(len(players))]
        for player in players:
            player.store()
            player.start_service("--network", "on")
            player.open_test(TEST, "studio", 0)
        for channel, player in enumerate(players):
            self.wait_heard_there(player, TEST)
            self.wait_carried(program, 0, lambda message, sender=player: sender.play(TEST, message))
            player.play(TEST, *on_channel(channel, *CHORD))
        for channel, heard in enumerate(self.heard):
            heard.wait_messages(0, *on_channel(channel, *CHORD))
        return players

    def wait_note(self, player, channel, since, what):
        """Plays a note again and again, as a person would, until it is heard; checks how much time in which a processor was free
        that took since a stopwatch was started."""
        heard = self.heard[channel]
        heard.forget()
        note, = on_channel(channel, NOTE)
        def is_heard():
            player.play(TEST, note, *on_channel(channel, note_off(48)))
            return note in heard.messages(0)
        self.wait(is_heard, "a note of " + what)
        self.assert_within(BACK, since.free_until(heard.at(0)[0][0]), what + " is heard again")

    def test_half_a_second_without_the_cable_ends_nothing_and_loses_nothing(self):
        laptop, = self.hold_chords("laptop")
        before = self.studio.session("laptop")
        laptop.unplug()
        # A note-on that comes more than half a second late is left out on purpose; this one is to come in time.
        time.sleep(0.3)
        laptop.play(TEST, LATER)
        time.sleep(0.2)
        laptop.plug_in()
        self.heard[0].wait_messages(0, *CHORD, LATER)
        after = self.studio.session("laptop")
        self.assertEqual((after["state"], after["lost"]), ("up", 0))
        self.assertGreaterEqual(after["seconds"], before["seconds"])
        self.assertGreater(laptop.session("studio")["repaired"], 0)

    def test_whoever_falls_silent_is_let_go_after_two_seconds_and_heard_again_when_it_is_back(self):
        unplugged, carrierless, stopped, killed = players = self.hold_chords("unplugged", "carrierless", "stopped", "killed")
        unplugged.unplug()
        carrierless.set_carrier(False)
        stopped.service.process.send_signal(signal.SIGSTOP)
        killed.service.kill()
        fell_silent = time.monotonic()
        for heard, player in zip(self.heard, players):
            with self.subTest(player.name):
                first, final = heard.wait_released(0, CHORD)
                last = self.world.wire.last_datagram(player, self.studio)
                self.assertGreaterEqual(first - last, LOST)
                self.assert_within(RELEASED, final - last, player.name + " is let go")
                self.wait(lambda: self.studio.session(player.name) is None or not self.studio.session(player.name)["up"],
                          "the studio says so")
        for player in (unplugged, carrierless):
            self.assertEqual((player.session("studio")["state"], player.session("studio")["problem"]),
                             ("lost", 'The computer "studio" is no longer heard.'))

        self.heard[0].forget()
        time.sleep(max(0.0, fell_silent + 3.0 - time.monotonic()))
        back = Stopwatch()
        unplugged.plug_in()
        self.wait_note(unplugged, 0, back, "the unplugged computer")
        back = Stopwatch()
        carrierless.set_carrier(True)
        self.wait_note(carrierless, 1, back, "the computer that knew of it")
        killed.start_service("--network", "on")
        back = Stopwatch()
        killed.open_test(TEST, "studio", 0)
        self.wait_note(killed, 3, back, "the killed computer")
        time.sleep(max(0.0, fell_silent + 5.0 - time.monotonic()))
        self.heard[0].forget()
        back = Stopwatch()
        stopped.service.process.send_signal(signal.SIGCONT)
        self.wait_note(stopped, 2, back, "the stopped computer")
        # Nothing old is played at a return.
        self.assertEqual([message for message in self.heard[2].messages(0) if message[1] != NOTE[1] and not is_release(message)], [])

    def test_a_listener_that_was_killed_is_played_to_again_without_anybodys_doing(self):
        laptop, studio = self.computers("laptop", "studio")
        laptop.store()
        studio.store(hearing(0))
        studio.start_service("--network", "on")
        laptop.start_service("--network", "on")
        laptop.open_test(TEST, "studio", 0)
        self.wait_heard_there(laptop, TEST)
        laptop.play(TEST, *CHORD)
        self.wait(lambda: studio.status()["ports"][0]["input"]["messages"] == 3, "the chord")
        studio.service.kill()
        self.wait(lambda: laptop.session("studio")["state"] == "lost", "the laptop notices")
        studio.start_service("--network", "on")
        back = Stopwatch()
        while studio.status()["ports"][0]["input"]["messages"] == 0:
            laptop.play(TEST, NOTE, note_off(48))
            time.sleep(0.005)
        self.assert_within(BACK, back.free(), "the first note")

    def test_a_computer_that_ends_in_order_is_let_go_and_out_of_the_list_at_once(self):
        laptop, = self.hold_chords("laptop")
        self.wait(lambda: self.studio.listed() == ["laptop"], "the list")
        begin = Stopwatch()
        laptop.service.process.send_signal(signal.SIGTERM)
        gone = self.wait(lambda: self.studio.listed() == [], "the list without the laptop")
        self.assert_within(0.1, begin.free_until(self.heard[0].wait_released(0, CHORD)[1]), "the release")
        self.assert_within(0.5, begin.free_until(gone), "gone from the list")
        self.assertEqual(laptop.service.process.wait(10), 0)


if __name__ == "__main__":
    network_bed.main(needs_ears=True)
