#!/usr/bin/python3
"""Usage: pipewire_reload_test.py VEXIL3D MUSIC_PROGRAM [RELOADS]

The service on PipeWire while its ports are renamed, added and withdrawn again and again without a pause, with the session manager and
without one. It lives, and in the end programs see exactly the ports that status tells of, which carry.
"""

import contextlib
import random
import sys
import time

import music_world
import pipewire_server
import running_service
from running_service import RELOAD, stored, wait_until

music_program = None
reloads = 200


class Reloads:
    session_manager = True

    def setUp(self):
        super().setUp()
        obstacle = pipewire_server.obstacle(self.session_manager)
        if obstacle:
            self.skipTest(obstacle)
        self.exits = contextlib.ExitStack()
        self.addCleanup(self.exits.close)
        self.server = self.exits.enter_context(pipewire_server.PipeWireServer(self.surroundings.environment, self.session_manager))
        self.random = random.Random(7)

    def store(self, outputs, inputs, names):
        changes = {"OutputPorts": stored.mask(*outputs), "InputPorts": stored.mask(*inputs)}
        for port in range(8):
            changes[f"{port + 1:02d} Out_CustomName"] = names[port]
            changes[f"{port + 1:02d} In_CustomName"] = names[7 - port]
        self.surroundings.store(changes)

    def store_anything(self):
        ports = range(8)
        self.store([port for port in ports if self.random.random() < 0.6], [port for port in ports if self.random.random() < 0.6],
                   [self.random.choice(("", "Piano", "Organ", "Harp", f"Port {port + 11}")) for port in ports])

    def addresses(self):
        """What status tells of; None while it is not settled."""
        status = self.client().status()
        sides = [(side, port[side]) for port in status["ports"] for side in ("output", "input") if side in port]
        if any(one["problem"] for _, one in sides):
            return None
        return tuple(sorted(one["address"] for side, one in sides if side == wanted) for wanted in ("output", "input"))

    def test_service_lives_and_tells_of_the_ports_that_programs_see(self):
        self.store([0], [0], [""] * 8)
        service = self.start(("--midi", "jack"), environment=self.server.environment)
        wait_until(self.addresses, 20)
        program = music_world.MusicProgram(music_program, self.server.environment, "witness")
        self.addCleanup(program.end)
        client = self.client()
        for number in range(reloads):
            self.store_anything()
            self.assertEqual(client.ask(RELOAD), (0, b""), f"after {number} reloads: {service.log()[-2000:]}")
            # Some come together and some find the one before them half done or done.
            time.sleep(self.random.choice((0, 0.005, 0.02, 0.1)))
        self.store([0, 1, 2], [0, 1], ["One", "Two", "Three", "Four", "Five", "Six", "Seven", "Eight"])
        self.assertEqual(client.ask(RELOAD), (0, b""))
        wait_until(lambda: self.addresses() is not None and tuple(sorted(side) for side in program.ports()) == self.addresses(), 60)
        self.assertEqual([len(side) for side in self.addresses()], [3, 2])
        self.assertNotIn("does not", service.log())


class WithSessionManager(Reloads, running_service.ServiceTest):
    pass


class WithoutSessionManager(Reloads, running_service.ServiceTest):
    session_manager = False


if __name__ == "__main__":
    music_program = sys.argv.pop(2)
    if len(sys.argv) > 2 and sys.argv[2].isdigit():
        reloads = int(sys.argv.pop(2))
    running_service.main()
