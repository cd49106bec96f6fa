#!/usr/bin/python3
"""Usage: attacks_test.py VEXIL3D [SECONDS [RATE]]

Datagrams that somebody makes up, cuts, repeats, or sends in another's name, while a computer plays to another: nothing of them is
heard, nothing that is played is lost, and nobody is sent more than came from him. SECONDS of each kind, at RATE a second: 1 and 20,000
unless given.
"""

import ipaddress
import random
import struct
import sys
import time

import network_bed
import network_world
from network_bed import hearing, numbered

TEST = 5
STRANGERS = [f"10.77.0.{number}" for number in range(100, 116)]
STRANGER_CARD = bytes((2, 0, 0x5E, 0x10, 0, 9))
# The mark of a sealed datagram after its handshake: application data of DTLS 1.2, epoch 1.
SEALED = bytes((0x17, 0xFE, 0xFD, 0, 1))
ALERT = bytes((0x15, 0xFE, 0xFD, 0, 0))
PART = 500  # that are made up beforehand, and sent in turn
seconds = 1.0
rate = 20000


def frame(source, target, card, content):
    """An Ethernet frame with a UDP datagram: source and target as (address, port)."""
    length = 28 + len(content)
    head = struct.pack(">BBHHHBBH4s4s", 0x45, 0, length, 0, 0, 64, 17, 0,
                       ipaddress.ip_address(source[0]).packed, ipaddress.ip_address(target[0]).packed)
    total = sum(struct.unpack(">10H", head))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    head = head[:10] + struct.pack(">H", ~total & 0xFFFF) + head[12:]
    return card + STRANGER_CARD + b"\x08\x00" + head + struct.pack(">HHHH", source[1], target[1], 8 + len(content), 0) + content


class AttacksTest(network_bed.NetworkTest):
    def setUp(self):
        super().setUp()
        self.laptop, self.studio = self.computers("laptop", "studio", ip6=False)
        self.studio.store(hearing(0))
        self.studio.start_service("--network", "on")
        self.laptop.store()
        self.laptop.start_service("--network", "on")
        self.laptop.open_test(TEST, "studio", 0)
        self.wait_heard_there(self.laptop, TEST)
        self.played = 0
        self.play()
        self.random = random.Random(1)
        self.own = (self.laptop.address, network_world.PORT)
        self.there = (self.studio.address, network_world.PORT)
        self.real = [each.datagram().content for each in self.world.wire.seen_datagrams(self.laptop)
                     if each.datagram().target == self.there]
        self.card = next(each.content[:6] for each in self.world.wire.seen_datagrams(self.laptop)
                         if each.datagram().target == self.there)
        # The studio knows where the strangers would be, so that what it sends to them is seen.
        for address in STRANGERS:
            self.studio.ip("neigh", "replace", address, "lladdr", ":".join(f"{byte:02x}" for byte in STRANGER_CARD),
                           "nud", "permanent", "dev", "net0")

    def play(self):
        self.laptop.play(TEST, numbered(self.played))
        self.played += 1

    def heard(self):
        return self.studio.status()["ports"][0]["input"]["messages"]

    def stranger(self):
        return (self.random.choice(STRANGERS), self.random.randrange(1024, 65536))

    def made_up(self, size=1200):
        return self.random.randbytes(self.random.randrange(1, size))

    def attack(self, make):
        """Sends what `make` makes, as (source, content), to the studio, while the laptop plays. What came in and went out, in bytes, for
        each stranger."""
        made = [make() for _ in range(PART)]
        frames = [frame(source, self.there, self.card, content) for source, content in made]
        self.world.wire.forget()
        before = {computer: computer.session(other)["seconds"] for computer, other in
                  ((self.laptop, "studio"), (self.studio, "laptop"))}
        count = 0
        begin = time.monotonic()
        next_note = begin
        while count < seconds * rate:
            for _ in range(20):
                self.studio.take_frame(frames[count % PART])
                count += 1
            now = time.monotonic()
            if now >= next_note:
                next_note = now + 0.02
                self.play()
            time.sleep(max(0.0, begin + count / rate - time.monotonic()))
        self.wait(lambda: self.heard() == self.played, f"all of {self.played}, and nothing else")
        for computer, other in ((self.laptop, "studio"), (self.studio, "laptop")):
            session = computer.session(other)
            self.assertEqual((session["state"], session["lost"]), ("up", 0))
            self.assertGreaterEqual(session["seconds"], before[computer])
        self.assertEqual([session["computer"] for session in self.studio.status()["sessions"]], ["laptop"])
        came, went = {}, {}
        for index in range(count):
            source, content = made[index % PART]
            came[source[0]] = came.get(source[0], 0) + len(content)
        for each in self.world.wire.seen_datagrams(self.studio):
            target = each.datagram().target[0]
            went[target] = went.get(target, 0) + len(each.datagram().content)
        for address in STRANGERS:
            self.assertLessEqual(went.get(address, 0), came.get(address, 0))
        print(f"{count} in {time.monotonic() - begin:.1f} s; {sum(went.get(address, 0) for address in STRANGERS)} bytes to strangers")
        return went

    def test_what_is_made_up_or_cut_or_repeated_is_not_heard(self):
        kinds = (lambda: (self.stranger(), self.made_up()),
                 lambda: (self.stranger(), b"V" + self.made_up(400)),
                 lambda: (self.stranger(), SEALED + self.made_up(200)),
                 lambda: (self.stranger(), self.cut(self.random.choice(self.real))),
                 lambda: (self.stranger(), self.random.choice(self.real)))
        self.attack(lambda: self.random.choice(kinds)())

    def cut(self, content):
        return content[:self.random.randrange(1, len(content))]

    def test_what_is_sent_in_the_name_of_a_peer_is_not_heard_and_does_not_end_it(self):
        kinds = (lambda: self.made_up(), lambda: SEALED + self.made_up(200), lambda: ALERT + self.made_up(40),
                 lambda: self.cut(self.random.choice(self.real)), lambda: self.random.choice(self.real))
        self.attack(lambda: (self.own, self.random.choice(kinds)()))

    def test_calls_without_end_get_no_more_bytes_than_they_bring_and_keep_nobody_out(self):
        # The random part of the hello makes another caller of it.
        hello = next(content for content in self.real if network_world.is_call(content))
        went = self.attack(lambda: (self.stranger(), hello[:27] + self.random.randbytes(32) + hello[59:]))
        self.assertGreater(sum(went.get(address, 0) for address in STRANGERS), 0, "somebody was asked for a cookie")
        # The flood of a moment ago keeps nobody out.
        self.studio.service.kill()
        self.studio.start_service("--network", "on")
        self.wait(lambda: self.laptop.reason(TEST) == "" and self.laptop.is_up("studio"), "the laptop plays again")


if __name__ == "__main__":
    seconds = float(sys.argv.pop(2)) if len(sys.argv) > 2 and sys.argv[2][0].isdigit() else seconds
    rate = int(sys.argv.pop(2)) if len(sys.argv) > 2 and sys.argv[2][0].isdigit() else rate
    network_bed.main()
