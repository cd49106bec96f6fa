#!/usr/bin/python3
"""Usage: avahi_test.py VEXIL3D CACHE

Finding computers with Avahi, without it, and while it is killed, stands still or does not know better. CACHE: a folder in which Avahi's
programs are kept where they are not installed.
"""

import sys
import time

import avahi_world
import network_bed
import running_service

MDNS = 5353
NO_AVAHI = "No Avahi; the driver's own questions find other computers."
IS_THERE = "Avahi is there; it finds other computers, too.\n"
# One browse in a tenth of a second counts.
BROWSE = 0.12
IDLE = 1.0
TEST = 5
# Who has not answered by then is no longer listed.
PATIENCE = 0.6
cache = sys.argv.pop(2)


class AvahiTest(network_bed.NetworkTest):
    def setUp(self):
        super().setUp()
        self.laptop, self.studio = self.computers("laptop", "studio")

    def avahi_on(self, *computers):
        """Avahi on each of them, from now on."""
        daemons = [avahi_world.Avahi(computer) for computer in computers]
        for daemon in daemons:
            self.addCleanup(daemon.close)
        for daemon in daemons:
            daemon.start()
        return daemons

    def start(self, *computers, speaks="on"):
        for computer in computers:
            computer.store()
            computer.start_service("--network", speaks)

    def problem(self, computer):
        return computer.status()["network"]["avahi"]

    def browse(self, computer):
        self.assertEqual(computer.panel().set(197), 0)
        time.sleep(BROWSE)

    def look(self, computers):
        """What each lists after a browse."""
        for computer in computers:
            self.browse(computer)
        return [computer.listed() for computer in computers]

    def list_at_the_second_browse(self, computer, *names):
        """Waits until these are listed, who have been found by two browses or did not answer them."""
        self.browse(computer)
        self.browse(computer)
        self.wait(lambda: computer.listed() == list(names), f"the list {names} of {computer.name}")

    @staticmethod
    def rests(computer):
        """Whether the service does not wake up for a while."""
        before = running_service.wake_ups(computer.service.pid)
        time.sleep(IDLE)
        return running_service.wake_ups(computer.service.pid) == before

    def wait_for_avahi(self, computer, times=1):
        self.wait(lambda: computer.service.log().count(IS_THERE) == times, "Avahi on " + computer.name)
        self.assertEqual(self.problem(computer), "")

    def test_through_firewalls_that_let_in_answers_alone_names_are_found(self):
        # Two have one name, so Avahi gives one of them another one.
        everybody = [self.laptop, self.studio, self.world.computer("studio")]
        for computer in everybody:
            computer.firewall.on = True
            computer.firewall.open_ports = {MDNS}
        # Two that start at once would both give way again and again.
        for computer in everybody:
            avahi, = self.avahi_on(computer)
            self.wait(lambda: "Server startup complete" in avahi.report(), "the name of " + computer.name)
        self.start(*everybody)
        # A question gets in where that computer has asked here before, so all of them look until each knows the others.
        lists = [["studio", "studio-2"], ["laptop", "studio-2"], ["laptop", "studio-2"]]
        self.wait(lambda: self.look(everybody) == lists, "the lists")
        # They stay listed as long as they are there, and no longer.
        for _ in range(3):
            self.browse(self.laptop)
        time.sleep(PATIENCE)
        self.wait(lambda: self.laptop.listed() == ["studio", "studio-2"], "the same list")
        for computer in everybody[1:]:
            computer.service.end()
        self.wait(lambda: self.laptop.listed() == [], "an empty list")

    def test_the_list_is_right_whatever_becomes_of_avahi(self):
        self.start(self.laptop, self.studio)
        self.list_at_the_second_browse(self.laptop, "studio")
        self.assertEqual(self.problem(self.laptop), NO_AVAHI)
        self.assertEqual(self.laptop.service.log().count(NO_AVAHI), 1)

        ours, theirs = self.avahi_on(self.laptop, self.studio)
        for computer in (self.laptop, self.studio):
            computer.service.end()
            self.start(computer)
            self.wait_for_avahi(computer)
        self.list_at_the_second_browse(self.laptop, "studio")

        # Both crash over there: Avahi here goes on saying that the studio is there.
        theirs.kill()
        self.studio.service.kill()
        self.list_at_the_second_browse(self.laptop)
        self.start(self.studio)
        self.list_at_the_second_browse(self.laptop, "studio")

        # Avahi here is killed, and comes back.
        ours.kill()
        self.wait(lambda: self.problem(self.laptop) == NO_AVAHI, "the word that Avahi is gone")
        self.list_at_the_second_browse(self.laptop, "studio")
        self.studio.service.kill()
        self.list_at_the_second_browse(self.laptop)
        ours.start()
        self.wait_for_avahi(self.laptop, 2)
        self.start(self.studio)
        self.list_at_the_second_browse(self.laptop, "studio")
        self.assertEqual(self.laptop.service.log().count(NO_AVAHI), 1)

        # It stands still.
        ours.stop()
        begun = time.monotonic()
        self.list_at_the_second_browse(self.laptop, "studio")
        self.assert_within(2 * BROWSE + 0.5, time.monotonic() - begun, "two browses beside an Avahi that stands still")
        ours.go_on()
        self.list_at_the_second_browse(self.laptop, "studio")

    def test_a_session_of_rtp_midi_is_listed_and_reached_by_its_name(self):
        self.avahi_on(self.laptop, self.studio)
        self.studio.store(network_bed.hearing(0))
        self.studio.start_service("--network", "on")
        self.start(self.laptop)
        for computer in (self.laptop, self.studio):
            self.assertIn("done", computer.ask("rtp", "on"))
        self.wait(lambda: "studio 11" in self.laptop.listed(), "the session in the list")
        self.laptop.open_test(TEST, "studio 11", 0)
        self.wait_heard_there(self.laptop, TEST)
        # The port of the laptop that plays is a session now, too.
        self.wait(lambda: f"laptop {TEST + 11}" in self.studio.listed(), "the laptop's session in the list")
        self.wait(lambda: "studio 11" in self.laptop.listed(), "the session in the list")
        self.laptop.play(TEST, network_bed.note_on(60))
        self.wait(lambda: self.studio.status()["ports"][0]["input"]["messages"] == 1, "the note")

    def test_only_where_the_driver_speaks_it_is_published(self):
        self.laptop.add_card("spare", "10.78.0.1")
        self.avahi_on(self.laptop, self.studio)
        self.start(self.studio)
        self.wait_for_avahi(self.studio)
        for speaks in ("lo", "spare"):
            self.start(self.laptop, speaks=speaks)
            self.list_at_the_second_browse(self.laptop)
            self.laptop.service.end()
        self.assertFalse([frame for frame in self.world.wire.seen(self.laptop) if b"_vexil3" in frame.content])
        self.wait(lambda: self.rests(self.studio), "rest beside Avahi")
        self.start(self.laptop)
        self.wait(lambda: any(b"_vexil3" in frame.content for frame in self.world.wire.seen(self.laptop)), "the service on the wire")


if __name__ == "__main__":
    try:
        avahi_world.programs(cache)
    except avahi_world.Unavailable as problem:
        print(f"Skipped: {problem}")
        sys.exit(running_service.SKIPPED)
    network_bed.main()
