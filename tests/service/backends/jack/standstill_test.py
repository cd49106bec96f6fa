#!/usr/bin/python3
"""Usage: standstill_test.py VEXIL3D MUSIC_PROGRAM

The service while what it asks stands still: a JACK server, PipeWire, or a music program that JACK waits for. Every request is
answered within 100 ms, status says what is the matter, the service manager's watchdog is fed, and SIGTERM ends the service within
3 s.
"""

import contextlib
import signal
import sys
import time

import music_world
import pipewire_server
import running_service
from running_service import RELOAD, wait_until
from stopwatch import Stopwatch

# On a quiet computer 0.1 s is kept; a service that waits for JACK answers when JACK goes on, four seconds later.
LONGEST_ANSWER = 1.0  # of which a processor is free
LONGEST_END = 3.0
music_program = None


class Jackd:
    """jackd as most run: it does not wait for programs that are late."""

    obstacle = staticmethod(music_world.obstacle)

    def __init__(self, environment):
        self.server = music_world.JackServer(environment)

    def __enter__(self):
        self.server.start()
        self.environment = self.server.environment
        return self

    def __exit__(self, *_):
        self.resume()
        self.server.end()

    def pause(self):
        self.server.process.send_signal(signal.SIGSTOP)

    def resume(self):
        self.server.process.send_signal(signal.SIGCONT)


class Standstill:
    """What holds whatever stands still; `make_server` says on which system."""

    def setUp(self):
        super().setUp()
        obstacle = self.obstacle()
        if obstacle:
            self.skipTest(obstacle)
        self.exits = contextlib.ExitStack()
        self.addCleanup(self.exits.close)
        self.server = self.exits.enter_context(self.make_server(self.surroundings.environment))
        self.name(0)
        self.service = self.start(("--midi", "jack"), environment=dict(self.server.environment, WATCHDOG_USEC="400000"))
        wait_until(lambda: self.address().endswith("Name 0 out"), 20)

    def name(self, number):
        """Stores another name of the first output."""
        self.surroundings.store({"01 Out_CustomName": f"Name {number}"})

    def address(self):
        return self.client().status()["ports"][0]["output"]["address"]

    def ask_for(self, seconds):
        """Renames the output and asks for the status again and again; the longest time that an answer took, and the last status."""
        client = self.client()
        longest = 0.0
        status = None
        number = 0
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            number += 1
            self.name(number)
            for ask in (lambda: client.ask(RELOAD), client.status):
                begin = Stopwatch()
                status = ask()
                longest = max(longest, begin.free())
            time.sleep(0.05)
        return longest, status, number

    def assert_says_so(self, status):
        self.assertRegex(status["midi"]["problem"], r"^JACK does not answer since \d\d:\d\d:\d\d\.$")

    def assert_ends(self):
        self.service.process.send_signal(signal.SIGTERM)
        begin = Stopwatch()
        self.assertEqual(self.service.process.wait(20), 0)
        self.assertLess(begin.free(), LONGEST_END)
        self.assertFalse(self.surroundings.control.exists())

    def test_requests_are_answered_while_the_server_stands_still_and_are_carried_out_when_it_goes_on(self):
        self.server.pause()
        longest, status, number = self.ask_for(4)
        self.assertLess(longest, LONGEST_ANSWER)
        self.assert_says_so(status)
        self.surroundings.forget()
        self.surroundings.heard("WATCHDOG=1")
        wait_until(lambda: " since " in self.service.log())
        self.server.resume()
        wait_until(lambda: self.address().endswith(f"Name {number} out"), 20)
        wait_until(lambda: self.client().status()["midi"]["problem"] == "", 20)
        self.assertRegex(self.service.log(), r"JACK does not answer since \d\d:\d\d:\d\d\.\n")

    def test_sigterm_ends_the_service_while_the_server_stands_still(self):
        self.server.pause()
        self.ask_for(1)
        self.assert_ends()
        self.assertTrue(self.service.log().endswith("The MIDI system does not answer; the service ends without its leave.\n"),
                        self.service.log())

    def test_sigterm_ends_a_service_that_has_asked_for_nothing(self):
        self.server.pause()
        self.assert_ends()


class OnJackd(Standstill, running_service.ServiceTest):
    obstacle = staticmethod(music_world.obstacle)
    make_server = Jackd

    def test_requests_are_answered_while_a_music_program_stands_still(self):
        program = music_world.MusicProgram(music_program, self.server.environment, "still")
        self.addCleanup(program.kill)
        self.assertTrue(program.play_to(self.address()))
        program.process.send_signal(signal.SIGSTOP)
        longest, _, number = self.ask_for(5)
        self.assertLess(longest, LONGEST_ANSWER)
        program.process.send_signal(signal.SIGCONT)
        wait_until(lambda: self.address().endswith(f"Name {number} out"), 90)

    def test_sigterm_ends_the_service_while_a_music_program_stands_still(self):
        program = music_world.MusicProgram(music_program, self.server.environment, "still")
        self.addCleanup(program.kill)
        program.process.send_signal(signal.SIGSTOP)
        self.ask_for(1)
        self.assert_ends()


class OnPipeWire(Standstill, running_service.ServiceTest):
    obstacle = staticmethod(pipewire_server.obstacle)
    make_server = pipewire_server.PipeWireServer


if __name__ == "__main__":
    music_program = sys.argv.pop(2)
    running_service.main()
