#!/usr/bin/python3
"""Usage: rtp_test.py VEXIL3D MUSIC_PROGRAM

Two computers that play to each other by RTP-MIDI alone: notes and system exclusive both ways, through a network that loses a
tenth of its packets, and with one of them killed and started again.
"""

import json
import socket
import time

import network_bed
from network_bed import hearing, note_off, note_on

TEST = 5  # the laptop's port; its sessions are on UDP ports 5014 and 5015
STUDIO_UDP = 5004
DUMP = bytes((0xF0, 0x7D)) + bytes(index * 7 & 0x7F for index in range(4093)) + bytes((0xF7,))
PART = 512  # bytes that a test output takes at once
BACK = 2.5  # a peer that is lost is invited every 2 s at the latest


class RtpTest(network_bed.NetworkTest):
    def command(self, computer, *words):
        self.assertIn("done", json.loads(computer.ask(*words)))

    def speak(self, computer, values=()):
        computer.store(values)
        computer.start_service("--network", "on")
        self.command(computer, "rtp", "on")

    def connect(self, *laptop_inputs):
        """The laptop's test output plays to the session of the studio's first port."""
        self.laptop, self.studio = self.computers("laptop", "studio", ip6=False)
        self.speak(self.laptop, hearing(*laptop_inputs))
        self.open()

    def open(self):
        self.laptop.open_test(TEST, f"{self.studio.address}:{STUDIO_UDP}", 0)

    def heard_by(self, computer, port):
        """How many messages programs have heard at an input."""
        return next(each["input"]["messages"] for each in computer.status()["ports"] if each["index"] == port)

    def all_is_heard(self, computer, port):
        """Whether nothing more comes to an input for a while."""
        before = self.heard_by(computer, port)
        time.sleep(0.3)
        return self.heard_by(computer, port) == before

    def test_notes_and_exclusives_go_there_and_back_and_loss_leaves_nothing_sounding(self):
        self.laptop, self.studio = self.computers("laptop", "studio", ip6=False)
        self.studio.store(hearing(0))
        heard = network_bed.Heard(self.ears_of(self.studio))
        self.command(self.studio, "rtp", "on")
        self.speak(self.laptop, hearing(TEST))
        self.open()
        self.wait_heard_there(self.laptop, TEST)
        session, = self.laptop.status()["sessions"]
        self.assertEqual((session["address"], session["key"]), (f"{self.studio.address}:{STUDIO_UDP}", ""))
        self.laptop.play(TEST, note_on(60))
        for at in range(0, len(DUMP), PART):
            self.laptop.play(TEST, DUMP[at:at + PART])
        self.laptop.play(TEST, note_off(60))
        self.wait(lambda: b"".join(heard.messages(0)) == note_on(60) + DUMP + note_off(60), "what the laptop plays")

        # Back by the session that the laptop has called.
        self.studio.open_test(0, f"{self.laptop.address}:{STUDIO_UDP + 2 * TEST}", 0)
        self.wait_heard_there(self.studio, 0)
        self.studio.play(0, note_on(48), note_off(48))
        self.wait(lambda: self.heard_by(self.laptop, TEST) == 2, "what the studio plays")
        self.assertEqual(len(self.studio.status()["sessions"]), 1)

        self.world.wire.both_ways(self.laptop, self.studio, loss=0.1)
        heard.forget()
        for key in range(36, 96):
            self.laptop.play(TEST, note_on(key))
            time.sleep(0.01)
            self.laptop.play(TEST, note_off(key))
        self.wait(lambda: self.sounding(heard) == set(), "the end of every note")
        self.laptop.play(TEST, note_on(100))
        self.wait(lambda: self.sounding(heard) == {100}, "the last note")

    @staticmethod
    def sounding(heard):
        keys = set()
        for message in heard.messages(0):
            (keys.discard if network_bed.is_release(message) else keys.add)(message[1])
        return keys

    def test_a_computer_that_was_killed_is_released_and_played_to_again_without_anybodys_doing(self):
        self.laptop, self.studio = self.computers("laptop", "studio", ip6=False)
        self.speak(self.studio, hearing(0))
        self.speak(self.laptop, hearing(TEST))
        self.open()
        self.wait_heard_there(self.laptop, TEST)
        self.laptop.play(TEST, note_on(60))
        self.wait(lambda: self.heard_by(self.studio, 0) == 1, "the note")
        self.studio.service.kill()
        self.wait(lambda: self.laptop.reason(TEST) != "", "the laptop notices")
        self.studio.start_service("--network", "on")
        self.wait(self.studio.is_serving, "the studio is there")
        begin = time.monotonic()

        def is_heard():
            self.laptop.play(TEST, note_on(62))
            return self.heard_by(self.studio, 0) > 0

        self.wait(is_heard, "a note after the return")
        self.assert_within(BACK, time.monotonic() - begin, "the first note")

        # The laptop is killed while that note sounds: nobody who plays is left, so it is released.
        self.wait(lambda: self.all_is_heard(self.studio, 0), "the last of the notes")
        before = self.heard_by(self.studio, 0)
        self.laptop.service.kill()
        self.wait(lambda: self.heard_by(self.studio, 0) > before, "the release")

    def test_without_rtp_nobody_is_answered_and_another_port_of_a_session_is_named(self):
        self.laptop, self.studio = self.computers("laptop", "studio", ip6=False)
        self.studio.store(hearing(0))
        self.studio.start_service("--network", "on")
        self.speak(self.laptop)
        invitation = b"\xff\xffIN" + bytes((0, 0, 0, 2, 0, 0, 0, 7, 1, 2, 3, 4)) + b"iPad\0"
        with self.laptop.inside():
            caller = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(caller.close)
        caller.settimeout(network_bed.network_world.PATIENCE)
        caller.connect((self.studio.address, STUDIO_UDP))
        caller.send(invitation)
        # Nobody is there: the system over there says so.
        self.assertRaises(ConnectionRefusedError, caller.recv, 2048)
        self.command(self.studio, "rtp", "on")
        caller.send(invitation)
        self.assertEqual(caller.recv(2048)[:12], b"\xff\xffOK" + bytes((0, 0, 0, 2, 0, 0, 0, 7)))
        self.command(self.studio, "rtp", "off")
        self.laptop.open_test(TEST, f"{self.studio.address}:{STUDIO_UDP}", 3)
        self.wait(lambda: self.laptop.reason(TEST) == f'"{self.studio.address}:{STUDIO_UDP}" has one port, 11.', "the reason")


if __name__ == "__main__":
    network_bed.main()
