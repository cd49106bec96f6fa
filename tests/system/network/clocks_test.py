#!/usr/bin/python3
"""Usage: clocks_test.py VEXIL3D SHIFTED_CLOCK [SECONDS]

Computers that sleep for a moment, and whose time of day is set while they play: nothing counts but 2 s of silence. SHIFTED_CLOCK:
the library of that name. SECONDS: how long is played after each change of the time of day, 1 unless given.
"""

import os
import signal
import struct
import sys
import time

import network_bed
from network_bed import hearing, numbered

TEST = 5
HOUR = 3600
BACK = 2.0
SLEEP = 1.2  # less than the 2 s after which a silent computer counts as gone
library = ""
seconds = 1.0


class ClocksTest(network_bed.NetworkTest):
    def start(self):
        self.laptop, self.studio = self.computers("laptop", "studio")
        self.laptop.store()
        self.studio.store(hearing(0))
        for computer in (self.laptop, self.studio):
            self.set_clock(computer, 0)
            self.start_service(computer)
        self.laptop.open_test(TEST, "studio", 0)
        self.wait_heard_there(self.laptop, TEST)
        self.played = 0

    def start_service(self, computer):
        computer.start_service("--network", "on", environment={
            "SHIFTED_CLOCK": str(self.clock_of(computer)), "LD_PRELOAD": library} if library else None)

    @staticmethod
    def clock_of(computer):
        return computer.surroundings.folder / "clock"

    def set_clock(self, computer, shift):
        """The time of day over there is so many seconds ahead from now on."""
        path = self.clock_of(computer)
        descriptor = os.open(path, os.O_WRONLY | os.O_CREAT, 0o600)
        os.pwrite(descriptor, struct.pack("<q", shift), 0)
        os.close(descriptor)

    def play(self):
        self.laptop.play(TEST, numbered(self.played))
        self.played += 1

    def heard(self):
        return self.studio.status()["ports"][0]["input"]["messages"]

    def wait_all_heard(self):
        self.wait(lambda: self.heard() == self.played, f"all of {self.played}")

    def assert_goes_on(self, since):
        """It is the connection that was there before, and it has lost nothing."""
        self.wait_all_heard()
        for computer, other in ((self.laptop, "studio"), (self.studio, "laptop")):
            session = computer.session(other)
            self.assertEqual((session["state"], session["lost"], session["late"]), ("up", 0, 0))
            self.assertGreaterEqual(session["seconds"], int(time.monotonic() - since))

    def test_the_time_of_day_may_be_set_back_and_forward_while_notes_go(self):
        self.start()
        since = time.monotonic()
        for computer, shift in ((self.laptop, -HOUR), (self.studio, -HOUR), (self.laptop, 24 * HOUR), (self.studio, 24 * HOUR)):
            self.set_clock(computer, shift)
            end = time.monotonic() + seconds
            while time.monotonic() < end:
                self.play()
                time.sleep(0.02)
        self.assert_goes_on(since)

    def test_a_connection_is_made_while_the_time_of_day_jumps(self):
        self.start()
        self.wait_all_heard()
        self.studio.service.kill()
        self.wait(lambda: self.laptop.session("studio")["state"] == "lost", "the laptop notices")
        self.set_clock(self.studio, HOUR)
        self.start_service(self.studio)
        back = time.monotonic()
        for shift in range(40):
            for computer in (self.laptop, self.studio):
                self.set_clock(computer, -shift * HOUR)
            time.sleep(0.005)
        up = self.wait(lambda: self.laptop.reason(TEST) == "", "the connection")
        self.assert_within(BACK, up - back, "the connection")

    def test_a_sleep_of_less_than_two_seconds_ends_and_loses_nothing(self):
        self.start()
        since = time.monotonic()
        for computer in (self.laptop, self.studio):
            self.play()
            self.wait_all_heard()
            computer.service.process.send_signal(signal.SIGSTOP)
            time.sleep(SLEEP)
            computer.service.process.send_signal(signal.SIGCONT)
            self.play()
        self.assert_goes_on(since)


if __name__ == "__main__":
    library = sys.argv.pop(2)
    seconds = float(sys.argv.pop(2)) if len(sys.argv) > 2 and sys.argv[2][0].isdigit() else seconds
    network_bed.main()
