#!/usr/bin/python3
"""Usage: properties_test.py VEXIL3D

The service where JACK's library has no room for the properties of ports, as it has after many programs were killed.
"""

import sys

import music_world
import own_shared_memory
import running_service
from running_service import RELOAD, stored, wait_until

PATIENCE = 15.0


class PropertiesTest(running_service.ServiceTest):
    def use(self, *ports):
        self.surroundings.store({"LocalPipes": stored.mask(*ports), "OutputPorts": stored.mask(), "InputPorts": stored.mask()})

    def addresses(self):
        return [port[side]["address"] for port in self.client().status()["ports"] for side in ("output", "input") if side in port]

    def wait_ports(self, *ports):
        wanted = [f"Vexil III:Port {port + 11} {side}" for port in ports for side in ("out", "in")]
        wait_until(lambda: self.addresses() == wanted, PATIENCE)

    def test_ports_come_and_go_without_properties_and_that_is_told_once(self):
        own_shared_memory.limit_properties(mutexes=1)
        with music_world.JackServer(self.surroundings.environment) as server:
            self.use(0, 1)
            service = self.start(("--midi", "jack"), environment=server.environment)
            self.wait_ports(0, 1)
            self.use(1, 2, 3)
            self.assertEqual(self.client().ask(RELOAD)[0], 0)
            self.wait_ports(1, 2, 3)
            self.assertEqual(service.end(), 0)
        self.assertEqual(service.log().count("JACK takes no properties of ports"), 1, service.log())


if __name__ == "__main__":
    reason = music_world.obstacle() or ("" if own_shared_memory.take() else "there can be no /dev/shm of the test's own")
    if reason:
        print(f"Skipped: {reason}")
        sys.exit(running_service.SKIPPED)
    running_service.main()
