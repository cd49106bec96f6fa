#!/usr/bin/python3
"""Usage: unruly_programs_test.py VEXIL3D MUSIC_PROGRAM [jack|pipewire] [SECONDS] [SEED]

The service among music programs that are stopped, slow, killed and disconnected at random, for SECONDS (60 unless given). Every
status request is answered. A MIDI system that does not wait for late programs loses cycles of its own, so what the service does is
seen where it meets the MIDI system's library (music/cycle_record.cpp): of a program that has gone it leaves nothing sounding there, and
of two patterns it gives on what it was given, to the byte. What is lost between there and the program that listens is the MIDI
system's, and told by number. Beside that, the two patterns lose nothing in a stretch in which a third one, between the same two
programs without the service, came through whole.

Beside MUSIC_PROGRAM lies cycle_record.so.
"""

import os
import pathlib
import random
import shutil
import signal
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parents[1] / "tools"))
import cycle_record  # noqa: E402
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
SILENCE = 5.0  # after which what the service holds of a program that has gone is a fault
ON_ITS_WAY = 1.0  # to the ear


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
        # In memory: the service's process thread writes to it.
        self.records = pathlib.Path(tempfile.mkdtemp(prefix="vexil-record-", dir="/dev/shm"))
        self.record = cycle_record.CycleRecord(self.records / "service")
        self.service = running_service.Service(self.surroundings, ("--midi", "jack"), environment=dict(
            self.server.environment, LD_PRELOAD=str(pathlib.Path(music).resolve().with_name("cycle_record.so")),
            CYCLE_RECORD=str(self.record.path)))
        self.observer = running_service.Client(self.surroundings.control, PATIENCE)
        self.slowest = 0.0
        self.counts = dict.fromkeys((*DISTURBANCES, "silences that the ear did not hear"), 0)
        self.stuck = {port: set() for port in UNRULY}  # what sounds on at the ear because of those
        self.passed = 0  # bytes of the patterns that the service was given and has given on
        self.broken = {"direct": 0, "service": 0, "service alone": 0, "stretches": 0}
        self.messages = 0
        self.number = 0
        self.written = []  # messages of each of the player's ports, at the beginning of the stretch
        self.player = self.program("player", writers=3, readers=0)
        self.ear = self.program("ear", writers=0, readers=DIRECT + 1 + PORTS)
        self.wait(lambda: len(self.status()["ports"]) == PORTS and all(map(all, self.addresses())), "the ports")
        self.addresses_of = dict(enumerate(self.addresses()))
        for port in STEADY:
            self.record.keep(*map(self.short, self.addresses_of[port]))
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
        shutil.rmtree(self.records, ignore_errors=True)

    def status(self):
        begin = time.monotonic()
        status = self.observer.status()
        taken = time.monotonic() - begin
        self.slowest = max(self.slowest, taken)
        expect(taken < LONGEST_ANSWER, f"status took {taken:.2f} s")
        return status

    @staticmethod
    def short(address):
        return address.split(":", 1)[1]

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
        self.expect_passed()
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
        name = self.short(self.addresses_of[port][1])
        end = time.monotonic() + SILENCE
        while self.sounds_at_the_service(name):
            expect(time.monotonic() < end, f"the service leaves {self.record.sounding[name].left} sounding at {name}, and gave last "
                                           f"{list(self.record.last[name])}")
            time.sleep(0.02)
        end = time.monotonic() + ON_ITS_WAY
        while self.sounding(port) - self.stuck[port]:
            if time.monotonic() > end:
                self.stuck[port] = self.sounding(port)
                self.counts["silences that the ear did not hear"] += 1
                break
            time.sleep(0.02)

    def sounds_at_the_service(self, name):
        self.record.update()
        return self.record.sounding[name].left

    def expect_passed(self):
        self.record.update()
        for port in STEADY:
            output, its_input = map(self.short, self.addresses_of[port])
            given, passed = self.record.take("r", output), self.record.take("w", its_input)
            differs = next((place for place, (one, two) in enumerate(zip(given, passed)) if one != two), min(len(given), len(passed)))
            expect(given == passed, f"the service was given {len(given)} bytes at {output} and gave on {len(passed)}; from byte "
                                    f"{differs} on: {given[differs:differs + 30].hex()}, {passed[differs:differs + 30].hex()}")
            self.passed += len(given)

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
        print(f"{elapsed:7.0f} s: {self.counts}, {self.messages} messages heard, "
              f"{self.passed} bytes passed on, {self.record.missed} cycles missed, broken {self.broken}, {memory} KiB, slowest answer "
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
    expect(world.passed != 0, "the record has nothing of the patterns")
    print("Nothing hung, the service left nothing sounding, and lost nothing.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
