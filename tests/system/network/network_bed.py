"""What the tests of MIDI between computers share: a wire with computers, and ears on JACK. A test program ends with

    if __name__ == "__main__":
        network_bed.main()

and is called as PROGRAM VEXIL3D [MUSIC_PROGRAM]; tests that listen need the second.
"""

import os
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "tools"))
import music_world  # noqa: E402
import network_world  # noqa: E402
import own_shared_memory  # noqa: E402
import running_service  # noqa: E402
import stored_configuration as stored  # noqa: E402

FRAMES = 256  # of a cycle of JACK: 5.3 ms
# What arrives waits for a cycle and is played one cycle later.
LATER_ON_JACK = 2 * FRAMES / 48000
CLOCK, STOP = b"\xF8", b"\xFC"

music_program = None


def on_channel(channel, *messages):
    """Channel messages, on another channel."""
    return tuple(bytes((message[0] & 0xF0 | channel, *message[1:])) for message in messages)


def note_on(key, channel=0):
    return bytes((0x90 | channel, key, 100))


def note_off(key, channel=0):
    return bytes((0x80 | channel, key, 64))


def numbered(count, channel=0):
    """A message that carries a number from 0 to 16,383."""
    return bytes((0xE0 | channel, count & 0x7F, count >> 7 & 0x7F))


def percentile(times, share):
    """Of times in any order, the one below which that share of them lies."""
    return sorted(times)[min(len(times) - 1, int(len(times) * share))]


def is_release(message):
    """Whether a message ends notes: a note-off, or a note-on of velocity 0."""
    return message[0] & 0xF0 == 0x80 or (message[0] & 0xF0 == 0x90 and message[2] == 0)


def to(computer, *ports):
    """The stored values by which outputs, from the first on, each play to an input (index) of another computer."""
    values = {"OutputPorts": stored.mask(*range(len(ports)))}
    for output, port in enumerate(ports):
        values[f"{output + 1:02d} PortFlags"] = stored.entry(0xC0, 0, port)
        values[f"{output + 1:02d} DstHost"] = computer.name
    return values


def hearing(*ports):
    """The stored values by which inputs (indices) hear everybody."""
    return {"OutputPorts": stored.mask(), "InputPorts": stored.mask(*ports)}


class Heard:
    """What a music program hears at each of its inputs; on one channel alone if that is given."""

    def __init__(self, program, channel=None):
        self.program = program
        self.channel = channel

    def at(self, port):
        """What was heard at an input, as (time, message)."""
        with self.program.lock:
            return [(when, message) for reader, when, message in self.program.kept
                    if reader == port and self.channel in (None, message[0] & 0x0F)]

    def messages(self, port):
        return [message for _, message in self.at(port)]

    def wait_messages(self, port, *messages):
        """Waits until exactly these have been heard."""
        self.program.wait(lambda: self.messages(port) == list(messages), f"what was played to input {port}")

    def wait_released(self, port, chord):
        """Waits until every note of a chord was let go at an input; when the first and the last of them were."""
        keys = {note[1] for note in chord}
        self.program.wait(lambda: {message[1] for message in self.messages(port) if is_release(message)} == keys,
                          f"the release at input {port}")
        times = [when for when, message in self.at(port) if is_release(message)]
        return times[0], times[-1]

    def forget(self):
        self.program.forget()


class Ears:
    """A JACK server of a computer, on which its service and a music program run."""

    def __init__(self, computer, patient=True):
        self.computer = computer
        self.server = music_world.JackServer(computer.surroundings.environment, FRAMES, patient=patient)
        self.server.start()
        self.program = None

    def start_service(self, *arguments):
        return self.computer.start_service(*arguments, midi="jack", environment=self.server.variables)

    def start_program(self, writers, readers):
        """A music program with that many ports to play from and to hear at."""
        self.program = music_world.MusicProgram(music_program, self.server.environment, "music", writers, readers)
        self.program.ask("listen")
        return self.program

    def close(self):
        if self.program:
            self.program.end()
            self.program.process.stdout.close()
        self.server.end()


class NetworkTest(unittest.TestCase):
    def setUp(self):
        self.world = network_world.NetworkWorld()
        self.addCleanup(self.world.close)
        self.stalls = network_world.StallMeter()
        self.stalls.start()
        self.addCleanup(self.stalls.end)

    def assert_within(self, bound, seconds, what):
        """`seconds` are not more than the bound and what this machine, busy with other things, was seen to add to a time. A note
        passes five threads on its way, each of which may be late."""
        slack = 5 * self.stalls.worst
        self.assertLessEqual(seconds, bound + slack, f"{what}; {slack:.3f} s of the bound are for this machine's own delays")

    def computers(self, *names, ip6=True):
        return [self.world.computer(name, ip6) for name in names]

    def ears_of(self, computer, ports=1):
        """Ears on a computer whose inputs, from the first on, a music program hears; its service speaks to the network."""
        ears = Ears(computer)
        self.addCleanup(ears.close)
        ears.start_service("--network", "on")
        program = ears.start_program(0, ports)
        self.world.wait(lambda: len(program.ports()[1]) == ports, "the inputs of " + computer.name)
        for index, address in enumerate(program.ports()[1]):
            self.wait(lambda: program.read_from(address, index), "the connection with " + address)
        self.wait_connected(computer, "input", ports)
        return program

    def wait_connected(self, computer, side, ports):
        """Waits until the service knows that its endpoints are connected."""
        self.wait(lambda: [port[side]["connections"] for port in computer.status()["ports"] if side in port] == [1] * ports,
                  "the connections of " + computer.name)

    def player_on(self, computer, ports=1):
        """A music program on a computer that plays into its outputs, from the first on; the service speaks to the network."""
        music = Ears(computer)
        self.addCleanup(music.close)
        music.start_service("--network", "on")
        program = music.start_program(ports, 0)
        self.world.wait(lambda: len(program.ports()[0]) == ports, "the outputs of " + computer.name)
        for index, address in enumerate(program.ports()[0]):
            self.wait(lambda: program.play_to(address, index), "the connection with " + address)
        self.wait_connected(computer, "output", ports)
        return program

    def wait(self, condition, what, seconds=network_world.PATIENCE):
        return self.world.wait(condition, what, seconds)

    def wait_carried(self, program, port, write):
        """Waits until what `write` sends is heard by a program at an input. JACK says that a connection is made before it carries
        anything, and what is sent meanwhile is lost."""
        def heard():
            with program.lock:
                return [message for reader, _, message in program.kept if reader == port]
        def is_carried():
            write(CLOCK)
            return CLOCK in heard()
        self.wait(is_carried, f"a clock at input {port}")
        write(STOP)
        self.wait(lambda: STOP in heard(), f"the last of the clocks at input {port}")
        program.forget(CLOCK, STOP)

    def wait_heard_there(self, computer, port, side="test"):
        """Waits until somebody hears what is sent by the test output of a port (index), or by its output."""
        return self.wait(lambda: computer.reason(port, side) == "", f"what {computer.name} plays is heard")


def main(needs_ears=False):
    global music_program
    running_service.program = sys.argv.pop(1)
    if len(sys.argv) > 1 and os.path.exists(sys.argv[1]):
        music_program = sys.argv.pop(1)
    present = [folder for folder in running_service.SYSTEM_WIDE if os.path.exists(folder)]
    obstacle = ("a system-wide installation is here, whose folders a service would use: " + ", ".join(present)
                if present else music_world.obstacle() if needs_ears else "")
    obstacle = obstacle or network_world.take()
    if obstacle:
        print("Skipped: " + obstacle)
        sys.exit(running_service.SKIPPED)
    own_shared_memory.take()
    unittest.main(verbosity=2)
