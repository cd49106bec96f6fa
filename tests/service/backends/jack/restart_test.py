#!/usr/bin/python3
"""Usage: restart_test.py VEXIL3D MUSIC_PROGRAM

What a driver that starts again owes to music programs, on a JACK server and on PipeWire: their connections, unless somebody has
disconnected them meanwhile, and, where the driver before it was killed, the end of the notes that it left sounding.
"""

import contextlib
import sys
import time

import music_world
import pipewire_server
import running_service
from running_service import stored, wait_until

CHANNELS = 16
PEDALS_UP_AND_NOTES_OFF = (64, 66, 67, 69, 123)
music_program = None


class Restart:
    def setUp(self):
        super().setUp()
        obstacle = self.obstacle()
        if obstacle:
            self.skipTest(obstacle)
        self.exits = contextlib.ExitStack()
        self.addCleanup(self.exits.close)
        self.server = self.exits.enter_context(self.make_server(self.surroundings.environment))
        self.surroundings.store({"OutputPorts": stored.mask(0), "InputPorts": stored.mask(0, 1), "01 DstHost": "localhost",
                                 "01 PortFlags": stored.entry(0x80, 0, 0)})
        self.service = self.start_service()
        self.program = self.start_program()
        self.output, self.input, self.other = self.addresses()
        self.assertTrue(self.program.play_to(self.output))
        self.assertTrue(self.program.read_from(self.input))
        self.wait_connections(1, 1)

    def start_service(self):
        service = self.start(("--midi", "jack"), environment=self.server.environment)
        wait_until(self.addresses, 20)
        return service

    def start_program(self):
        program = music_world.MusicProgram(music_program, self.server.environment, "keys")
        self.addCleanup(program.end)
        return program

    def sides(self):
        first, second = self.client().status()["ports"]
        return first["output"], first["input"], second["input"]

    def addresses(self):
        """None while they are not there."""
        addresses = tuple(side["address"] for side in self.sides())
        return addresses if all(addresses) else None

    def connections(self):
        return [side["connections"] for side in self.sides()]

    def wait_connections(self, output, input_):
        wait_until(lambda: self.connections() == [output, input_, 0], 20)

    def test_connections_are_back_after_an_end_and_a_start(self):
        self.assertEqual(self.service.end(), 0)
        self.start_service()
        self.wait_connections(1, 1)

    def test_connections_are_back_after_a_death_and_a_start(self):
        self.service.kill()
        self.start_service()
        self.wait_connections(1, 1)

    def test_connections_are_back_when_the_program_comes_after_the_driver(self):
        self.assertEqual(self.service.end(), 0)
        self.program.end()
        self.start_service()
        self.assertEqual(self.connections(), [0, 0, 0])
        self.start_program()
        self.wait_connections(1, 1)

    def test_what_somebody_has_disconnected_stays_so(self):
        self.assertTrue(self.program.disconnect("keys:out-0", self.output))
        self.wait_connections(0, 1)
        time.sleep(1)  # as long as it takes to tell this from the end of the program
        self.assertEqual(self.service.end(), 0)
        self.start_service()
        self.wait_connections(0, 1)
        time.sleep(1)  # as long as it might take to be connected
        self.assertEqual(self.connections(), [0, 1, 0])

    def test_readers_are_silenced_after_a_death(self):
        self.program.ask("listen")
        self.service.kill()
        self.start_service()
        wanted = {bytes((0xB0 | channel, controller, 0)) for channel in range(CHANNELS) for controller in PEDALS_UP_AND_NOTES_OFF}
        self.program.wait(lambda: wanted <= set(self.program.heard()), "the silence after a death")

    def test_readers_hear_nothing_after_a_clean_end(self):
        self.program.ask("listen")
        self.assertEqual(self.service.end(), 0)
        self.start_service()
        self.wait_connections(1, 1)
        time.sleep(1)  # longer than the first readers wait
        self.assertEqual(self.program.heard(), [])


class OnJackd(Restart, running_service.ServiceTest):
    obstacle = staticmethod(music_world.obstacle)
    make_server = music_world.JackServer


class OnPipeWire(Restart, running_service.ServiceTest):
    obstacle = staticmethod(pipewire_server.obstacle)
    make_server = pipewire_server.PipeWireServer


if __name__ == "__main__":
    music_program = sys.argv.pop(2)
    running_service.main()
