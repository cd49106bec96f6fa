#!/usr/bin/python3
"""Usage: soak_test.py VEXIL3D VEXIL3CTL MUSIC_PROGRAM [SECONDS] [SEED]

A long day of the service in short: a music program keeps all 64 ports busy through JACK, while the configuration changes
at random in every way there is (vexil3ctl load and reload, a signal, Apply of an attached panel), test outputs open and close, and
panels come and go. 32 ports keep their routes: nothing on them may be lost, doubled, changed or put out of order, whatever happens
to the others. Of the other 32 nothing may go on sounding. Requests must be answered, and memory, descriptors and threads
must stay as they were after warming up. SECONDS: how long, 20 unless given.
"""

import os
import pathlib
import random
import signal
import struct
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parents[1] / "tools"))
import music_world  # noqa: E402
import running_service  # noqa: E402
from running_service import GET, packet_list, test_record  # noqa: E402
from soak_configuration import PIPES, STEADY, WILD, Configuration, shown_by, steady_target  # noqa: E402

FRAMES = 256
STEADY_RATE = 200  # messages a second and port
WILD_RATE = 100
PATIENCE = 30.0
GROWTH = 1024  # KiB that the service may grow by after warming up
RELOAD, QUANTIZATION, OPEN, ACTIVATE, CLOSE, BROWSE, HOSTS = 190, 191, 192, 193, 194, 197, 202


class Soak:
    def __init__(self, ctl, music, seconds, seed):
        self.ctl = ctl
        self.seconds = seconds
        self.random = random.Random(seed)
        self.surroundings = running_service.Surroundings()
        self.configuration = Configuration(self.random)
        self.configuration.store(self.surroundings.preferences)
        self.server = music_world.JackServer(self.surroundings.environment, FRAMES, patient=True)
        self.server.start()
        self.service = running_service.Service(self.surroundings, ("--midi", "jack"), environment=self.server.environment)
        self.observer = running_service.Client(self.surroundings.control, PATIENCE)
        self.panel = None
        self.tests = {}  # of the attached panel: port: the notes that it holds there
        # Two programs: where one both writes to the service and reads from it, JACK runs in a ring, and loses or repeats a
        # cycle of the ring whenever it orders it anew.
        self.players = music_world.MusicProgram(music, self.server.environment, "players", writers=64, readers=0)
        self.listeners = music_world.MusicProgram(music, self.server.environment, "listeners", writers=0, readers=64)
        self.counts = dict.fromkeys(("changes", "tests", "panels", "silences"), 0)
        self.slowest = 0.0
        self.samples = []

    def close(self):
        self.players.end()
        self.listeners.end()
        self.service.kill()
        self.server.end()
        self.surroundings.remove()

    def alive(self):
        """Who is still there, for people."""
        programs = {"jackd": self.server, "vexil3d": self.service, "players": self.players, "listeners": self.listeners}
        return {name: program.process.poll() for name, program in programs.items()}

    # What is done to the service.

    def status(self):
        begin = time.monotonic()
        status = self.observer.status()
        self.slowest = max(self.slowest, time.monotonic() - begin)
        return status

    def change(self, wild=True):
        """Brings another configuration in and waits until the service has taken it up and programs are connected again."""
        self.configuration = Configuration(self.random, wild)
        self.counts["changes"] += 1
        way = self.random.choice(("load", "reload", "signal", "panel" if self.panel else "load"))
        if way == "load":
            path = self.surroundings.folder / "random.vexil3"
            self.configuration.write_settings(path)
            self.run_ctl("load", str(path))
        else:
            self.configuration.store(self.surroundings.preferences)
            if way == "reload":
                self.run_ctl("reload")
            elif way == "signal":
                self.service.process.send_signal(signal.SIGHUP)
            else:
                expect(self.panel.set(RELOAD) == 0, "the configuration could not be reloaded by the panel")
        wanted = self.configuration.shown()
        self.wait(lambda: self.is_taken_up(wanted), f"the configuration brought in by {way}")

    def is_taken_up(self, wanted):
        status = self.status()
        if shown_by(status) != wanted:
            return False
        return self.connect(status)

    def connect(self, status):
        """Connects the music program to every endpoint that it is not connected to; whether there was any that could not be."""
        whole = True
        for port in status["ports"]:
            index = port["index"]
            for side, connect in (("output", self.players.play_to), ("input", self.listeners.read_from)):
                end = port.get(side)
                if end and end["connections"] == 0:
                    expect(index in WILD or self.counts["changes"] == 0, f"steady port {index} was disconnected")
                    whole = end["address"] != "" and connect(end["address"], index) and whole
        return whole

    def run_ctl(self, *arguments):
        done = subprocess.run([self.ctl, *arguments], env=self.server.environment, capture_output=True, text=True,
                              check=False, timeout=PATIENCE)
        expect(done.returncode == 0, f"vexil3ctl {arguments[0]}: {done.returncode} {done.stderr}")
        return done.stdout

    def test(self):
        """One gesture of somebody who uses the test section of a panel."""
        if not self.panel:
            self.panel = running_service.Client(self.surroundings.control, PATIENCE)
            self.wait(lambda: self.panel.attach() == 0, "attaching a panel")
            self.counts["panels"] += 1
            return
        self.counts["tests"] += 1
        port = self.random.choice(WILD)
        gesture = self.random.random()
        if port in self.tests and gesture < 0.4:
            expect(self.panel.set(CLOSE, struct.pack("<I", port)) == 0, "closing a test output")
            del self.tests[port]
        elif port in self.tests:
            notes = [0x90, self.random.randrange(128), 100, 0x90, self.random.randrange(128), 100, 0xB0, 64, 127]
            expect(self.panel.set(port, packet_list(bytes(notes))) == 0, "playing a chord")
        elif gesture < 0.9:
            record = test_record(port, "localhost", self.random.choice(WILD))
            expect(self.panel.set(OPEN, record) == 0, "opening a test output")
            expect(self.panel.set(ACTIVATE, struct.pack("<I", port)) == 0, "activating a test output")
            self.tests[port] = True
        else:
            self.detach()

    def detach(self):
        if self.panel:
            self.panel.close()
            self.panel = None
            self.tests.clear()
            self.wait(lambda: not self.status()["attached"], "the end of an attachment")

    def small_thing(self):
        thing = self.random.choice(("quantization", "hosts", "text"))
        if thing == "text":
            expect("Port" in self.run_ctl("status"), "vexil3ctl status showed no port")
        elif self.panel and thing == "quantization":
            expect(self.panel.set(QUANTIZATION, struct.pack("<I", self.random.randrange(101))) == 0, "quantization")
        elif self.panel:
            expect(self.panel.set(BROWSE) == 0, "browsing")
            expect(self.panel.ask(GET, HOSTS, length=8192)[0] == 0, "reading the hosts")

    # What must be so.

    def silence(self):
        """Nothing may go on sounding when everybody has let go, or when every way of those who have not has ended."""
        self.counts["silences"] += 1
        self.detach()
        if self.random.random() < 0.5:
            self.players.ask("release")
            self.wait(lambda: all(self.written()[port]["idle"] for port in WILD), "the players' rest")
        else:
            self.players.ask("rest")
            self.change(wild=False)
        self.wait(lambda: not self.sounding(WILD), lambda: f"silence; {self.sounding(WILD)}")
        self.players.ask("go")
        if not any(port["out"] for port in self.configuration.ports[WILD.start:]):
            self.change()

    def written(self):
        return self.players.ask("report")["writers"]

    def heard(self):
        return self.listeners.ask("report")["readers"]

    def sounding(self, ports):
        readers = self.heard()
        return {port: readers[port]["sounding"] for port in ports if readers[port]["sounding"]}

    def check_streams(self):
        readers = self.heard()
        for port in STEADY:
            expect(readers[port]["fault"] == "", f"input {port}: {readers[port]['fault']}")

    def streams_are_whole(self):
        written, heard = self.written(), self.heard()
        return all((written[port]["messages"], written[port]["realtime"]) ==
                   (heard[steady_target(port)]["pattern"], heard[steady_target(port)]["realtime"]) for port in STEADY)

    def sample(self):
        folder = pathlib.Path(f"/proc/{self.service.pid}")
        lines = dict(line.split(":", 1) for line in (folder / "status").read_text().splitlines())
        memory = int(lines["VmRSS"].split()[0])
        return memory, len(os.listdir(folder / "fd")), int(lines["Threads"])

    def wait(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition():
            expect(time.monotonic() < end, f"in vain waited for {what() if callable(what) else what}")
            expect(self.service.process.poll() is None, f"the service has ended: {self.service.log()}")
            time.sleep(0.01)

    # The whole.

    def run(self):
        start = self.sample()
        self.wait(lambda: self.is_taken_up(self.configuration.shown()), "the first connections")
        for port in STEADY:
            self.listeners.ask(f"expect {steady_target(port)} {port + 1}")
            self.players.ask(f"pattern {port} {port + 1} {STEADY_RATE}")
        for port in WILD:
            self.players.ask(f"wild {port} {port + 1} {WILD_RATE}")
        begin = time.monotonic()
        warm_up = min(self.seconds / 3, 120.0)
        warm = None
        next_line = 0.0
        next_silence = 3.0
        while (elapsed := time.monotonic() - begin) < self.seconds:
            self.step()
            self.check_streams()
            if elapsed >= next_silence:
                next_silence = elapsed + 4.0
                self.silence()
            if warm is None and elapsed >= warm_up:
                self.detach()
                warm = self.sample()
            if elapsed >= next_line:
                next_line = elapsed + 60.0
                self.tell(elapsed)
        self.detach()
        self.end(start, warm)

    def step(self):
        draw = self.random.random()
        if draw < 0.4:
            self.change()
        elif draw < 0.9:
            self.test()
        else:
            self.small_thing()
        time.sleep(self.random.random() * 0.2)

    def tell(self, elapsed):
        memory, descriptors, threads = self.sample()
        heard = self.heard()
        steady = sum(heard[port]["pattern"] for port in STEADY)
        wild = sum(heard[port]["messages"] for port in WILD)
        print(f"{elapsed:7.0f} s: {self.counts}, heard {steady} + {wild}, {memory} KiB, {descriptors} descriptors, "
              f"{threads} threads, slowest answer {self.slowest * 1000:.0f} ms", flush=True)

    def end(self, start, warm):
        self.players.ask("rest")
        self.wait(self.streams_are_whole, "what the steady ports were still to hear")
        self.check_streams()
        self.tell(self.seconds)
        for port in self.status()["ports"]:
            if port["index"] in STEADY:
                expect(port["output"]["dropped"] == 0, f"port {port['port']} dropped {port['output']['dropped']}")
                expect(port["output"]["filtered"] == 0, f"port {port['port']} filtered {port['output']['filtered']}")
        last = self.sample()
        print(f"Memory: {start[0]} KiB at the start, {warm[0]} KiB after warming up, {last[0]} KiB at the end.")
        expect(last[0] - warm[0] <= GROWTH, f"the service has grown by {last[0] - warm[0]} KiB")
        expect(last[1:] == warm[1:], f"descriptors and threads: {warm[1:]} after warming up, {last[1:]} at the end")
        expect(self.service.end() == 0, f"the end of the service: {self.service.log()}")
        everybody = [*STEADY, *WILD]
        self.wait_silence(everybody)

    def wait_silence(self, ports):
        end = time.monotonic() + PATIENCE
        while rest := self.sounding(ports):
            expect(time.monotonic() < end, f"after the service's end there sounds: {rest}")
            time.sleep(0.01)


def expect(condition, what):
    if not condition:
        raise AssertionError(what)


def main():
    if len(sys.argv) < 4:
        print(__doc__)
        return 2
    running_service.program, ctl, music = sys.argv[1:4]
    seconds = float(sys.argv[4]) if len(sys.argv) > 4 else 20.0
    seed = int(sys.argv[5]) if len(sys.argv) > 5 else random.randrange(1 << 32)
    present = [folder for folder in running_service.SYSTEM_WIDE if os.path.exists(folder)]
    reason = music_world.obstacle() or (present and f"a system-wide installation is here: {', '.join(present)}")
    if reason:
        print(f"Skipped: {reason}")
        return running_service.SKIPPED
    print(f"Seed {seed}, {seconds:.0f} s, {len(STEADY)} steady ports ({len(PIPES)} of them pipes) at {STEADY_RATE} messages a second "
          f"each, {len(WILD)} wild ones at {WILD_RATE}.", flush=True)
    soak = Soak(ctl, music, seconds, seed)
    try:
        soak.run()
    except BaseException as error:
        print(f"Failed: {error!r}\n{soak.alive()}\n{soak.service.log()[-8000:]}", flush=True)
        raise
    finally:
        soak.close()
    print("Nothing was lost, nothing went on sounding, memory is flat.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
