#!/usr/bin/python3
"""Usage: unruly_programs_test.py VEXIL3D MUSIC_PROGRAM [jack|pipewire] [SECONDS] [SEED]

The service among music programs that are stopped, slow, killed and disconnected at random, for SECONDS (60 unless given). Every
status request is answered, nothing goes on sounding of a program that has gone, and two patterns through the service lose nothing
beside a third between the same two programs without it. A MIDI system that does not wait for late programs loses cycles of its own: a
stretch in which the direct pattern was broken as well does not count, and how many there were is told.
"""

import os
import pathlib
import random
import signal
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parents[1] / "tools"))
import music_world  # noqa: E402
import pipewire_server  # noqa: E402
import running_service  # noqa: E402
from running_service import stored  # noqa: E402

PORTS = 8
STEADY = (0, 1)
DIRECT = 2  # writer and reader of the pattern that does not go through the service
UNRULY = range(2, PORTS)
DISTURBANCES = ("stopped", "slow", "killed", "disconnected")
STRETCH = 3.0  # seconds after which patterns begin anew
RATE = 200
LONGEST_ANSWER = 1.0
PATIENCE = 30.0


def expect(condition, what):
    if not condition:
        raise AssertionError(what)


class World:
    def __init__(self, music, system, seed):
        self.music = music
        self.random = random.Random(seed)
        self.surroundings = running_service.Surroundings()
        self.surroundings.store({"LocalPipes": stored.mask(*range(PORTS)), "OutputPorts": 0, "InputPorts": 0})
        self.server = (pipewire_server.PipeWireServer(self.surroundings.environment, session_manager=False)
                       if system == "pipewire" else music_world.JackServer(self.surroundings.environment, 256))
        # A desktop's, so that not every stretch is broken.
        self.server.environment["PIPEWIRE_QUANTUM"] = "1024/48000"
        self.server.start()
        self.service = running_service.Service(self.surroundings, ("--midi", "jack"), environment=self.server.environment)
        self.observer = running_service.Client(self.surroundings.control, PATIENCE)
        self.slowest = 0.0
        self.counts = dict.fromkeys((*DISTURBANCES, "note-offs lost behind the service"), 0)
        self.lost = dict.fromkeys(UNRULY, 0)  # of each port, behind the service, as far as it has been noticed
        self.stuck = {port: set() for port in UNRULY}  # what sounds on at the ear because of that
        self.broken = {"direct": 0, "service": 0, "service alone": 0, "stretches": 0}
        self.messages = 0
        self.number = 0
        self.written = []  # messages of each of the player's ports, at the beginning of the stretch
        self.player = self.program("player", writers=3, readers=0)
        self.ear = self.program("ear", writers=0, readers=DIRECT + 1 + PORTS)
        self.wait(lambda: len(self.status()["ports"]) == PORTS and all(self.addresses()), "the ports")
        self.addresses_of = dict(enumerate(self.addresses()))
        self.unruly = {}

    def program(self, name, writers=1, readers=1):
        return music_world.MusicProgram(self.music, self.server.environment, name, writers, readers)

    def close(self):
        for program in [*self.unruly.values(), self.player, self.ear]:
            program.process.send_signal(signal.SIGCONT)
            program.kill()
        self.service.kill()
        self.server.end()
        self.surroundings.remove()

    def status(self):
        begin = time.monotonic()
        status = self.observer.status()
        taken = time.monotonic() - begin
        self.slowest = max(self.slowest, taken)
        expect(taken < LONGEST_ANSWER, f"status took {taken:.2f} s")
        return status

    def addresses(self):
        return [(port["output"]["address"], port["input"]["address"])
                for port in sorted(self.status()["ports"], key=lambda port: port["index"])]

    def wait(self, condition, what, seconds=PATIENCE):
        end = time.monotonic() + seconds
        while not condition():
            expect(time.monotonic() < end, f"in vain waited for {what() if callable(what) else what}")
            expect(self.service.process.poll() is None, f"the service has ended: {self.service.log()}")
            time.sleep(0.02)

    # The steady programs.

    def begin(self):
        for port in STEADY:
            expect(self.player.play_to(self.addresses_of[port][0], port), "connecting the player")
            expect(self.ear.read_from(self.addresses_of[port][1], port), "connecting the ear")
        expect(self.player.connect(f"player:out-{DIRECT}", f"ear:in-{DIRECT}"), "connecting the two directly")
        for port in UNRULY:
            expect(self.ear.read_from(self.addresses_of[port][1], DIRECT + 1 + port), "connecting the ear")
            self.restart(port)
        # Nothing tells when PipeWire's connections carry.
        self.pass_time(1.0)
        self.begin_stretch()

    def begin_stretch(self):
        # The player counts on.
        self.written = [writer["messages"] for writer in self.player.ask("report")["writers"]]
        for stream in (*STEADY, DIRECT):
            self.number += 1
            self.ear.ask(f"expect {stream} {self.number}")
            self.player.ask(f"pattern {stream} {self.number} {RATE}")
        self.player.ask("go")

    def end_stretch(self):
        """Lets the patterns come to their end, and compares."""
        self.player.ask("rest")
        streams = (*STEADY, DIRECT)
        end = time.monotonic() + 5.0
        while time.monotonic() < end:
            writers = self.player.ask("report")["writers"]
            written = [writer["messages"] - before for writer, before in zip(writers, self.written)]
            readers = self.ear.ask("report")["readers"]
            if all(writer["idle"] for writer in writers) and all(readers[one]["pattern"] == written[one] for one in streams):
                break
            time.sleep(0.05)
        whole = {one: readers[one]["fault"] == "" and readers[one]["pattern"] == written[one] for one in streams}
        self.messages += sum(readers[stream]["pattern"] for stream in STEADY)
        self.broken["stretches"] += 1
        self.broken["direct"] += not whole[DIRECT]
        through = not all(whole[port] for port in STEADY)
        self.broken["service"] += through
        if through and whole[DIRECT]:
            self.broken["service alone"] += 1
            for port in STEADY:
                print(f"  input {port + 11}: {readers[port]['fault'] or (readers[port], written[port])}", flush=True)

    # The others.

    def restart(self, port):
        program = self.unruly[port] = self.program(f"unruly-{port}")
        expect(program.play_to(self.addresses_of[port][0]) and program.read_from(self.addresses_of[port][1]), "connecting")
        program.ask(f"wild 0 {port + 1} 100")

    def sounding(self, port):
        text = self.ear.ask("report")["readers"][DIRECT + 1 + port]["sounding"]
        return set(text.split(", ")) - {""}

    def disturb(self):
        port = self.random.choice(UNRULY)
        program = self.unruly[port]
        what = self.random.choice(DISTURBANCES)
        self.counts[what] += 1
        if what == "stopped":
            program.process.send_signal(signal.SIGSTOP)
            self.pass_time(self.random.uniform(0.1, 3.0))
            program.process.send_signal(signal.SIGCONT)
            # The MIDI system may have thrown it out meanwhile.
            self.pass_time(0.2)
            program.kill()
            self.expect_silence(port)
            self.restart(port)
        elif what == "slow":
            for _ in range(10):
                program.process.send_signal(signal.SIGSTOP)
                time.sleep(0.03)
                program.process.send_signal(signal.SIGCONT)
                time.sleep(0.05)
        elif what == "killed":
            program.kill()
            self.expect_silence(port)
            self.restart(port)
        else:
            self.ear.disconnect(f"{program.name}:out-0", self.addresses_of[port][0])
            self.expect_silence(port)
            self.ear.disconnect(self.addresses_of[port][1], f"{program.name}:in-0")
            if program.process.poll() is None and "end" not in program.events:
                program.kill()
            self.restart(port)

    def expect_silence(self, port):
        end = time.monotonic() + 5.0
        while self.sounding(port) - self.stuck[port]:
            if time.monotonic() > end:
                lost = self.delivered(port) - self.ear.ask("report")["readers"][DIRECT + 1 + port]["messages"]
                expect(lost > self.lost[port], f"port {port + 11} goes on sounding: {self.sounding(port)}; lost {lost}")
                # What the service put in JACK's hands, and the ear never heard.
                self.lost[port] = lost
                self.stuck[port] = self.sounding(port)
                self.counts["note-offs lost behind the service"] += 1
                break
            time.sleep(0.02)

    def delivered(self, port):
        found = [one for one in self.status()["ports"] if one["index"] == port]
        return found[0]["input"]["messages"]

    def pass_time(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.status()
            time.sleep(0.05)

    def run(self, seconds):
        self.begin()
        begin = time.monotonic()
        next_stretch = begin + STRETCH
        next_line = begin
        while time.monotonic() < begin + seconds:
            self.disturb()
            self.pass_time(self.random.uniform(0, 0.3))
            if time.monotonic() >= next_stretch:
                self.end_stretch()
                self.begin_stretch()
                next_stretch = time.monotonic() + STRETCH
            if time.monotonic() >= next_line:
                self.tell(time.monotonic() - begin)
                next_line = time.monotonic() + 60.0
        self.end_stretch()
        self.tell(seconds)
        expect(self.service.end() == 0, f"the end of the service: {self.service.log()}")

    def tell(self, elapsed):
        memory = next(line.split()[1] for line in pathlib.Path(f"/proc/{self.service.pid}/status").read_text().splitlines()
                      if line.startswith("VmRSS"))
        print(f"{elapsed:7.0f} s: {self.counts}, {self.messages} messages, broken {self.broken}, {memory} KiB, slowest answer "
              f"{self.slowest * 1000:.0f} ms, load {os.getloadavg()[0]:.1f}", flush=True)


def main():
    if len(sys.argv) < 3:
        print(__doc__)
        return 2
    running_service.program, music = sys.argv[1:3]
    system = sys.argv[3] if len(sys.argv) > 3 else "jack"
    seconds = float(sys.argv[4]) if len(sys.argv) > 4 else 60.0
    seed = int(sys.argv[5]) if len(sys.argv) > 5 else random.randrange(1 << 32)
    reason = pipewire_server.obstacle(session_manager=False) if system == "pipewire" else music_world.obstacle()
    if reason:
        print(f"Skipped: {reason}")
        return running_service.SKIPPED
    print(f"Seed {seed}, {seconds:.0f} s on {system}.", flush=True)
    world = World(music, system, seed)
    try:
        world.run(seconds)
    except BaseException as error:
        print(f"Failed: {error!r}\n{world.service.log()[-8000:]}", flush=True)
        raise
    finally:
        world.close()
    expect(world.broken["service alone"] == 0, f"through the service alone were broken: {world.broken['service alone']}")
    print("Nothing hung, nothing went on sounding, and nothing was lost that was not lost without the service as well.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
