#!/usr/bin/python3
"""Usage: service_start.py FOLDER_OF_BENCHMARKS VEXIL3D [RUNS]

Start of vexil3d with a full configuration until it is ready and until it has answered a first request, and its wake-ups
while idling with a panel attached, beside a program that only binds and answers: by turns, warm. Prints a table of medians. Exit
status 1 when a bound is missed.
"""

import pathlib
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
import running_service  # noqa: E402
from running_service import RELOAD, Client, Surroundings, stored, wake_ups  # noqa: E402

LONGEST_START_MS = 100.0
IDLE_SECONDS = 10.0


class Start:
    """One start of a program until it answers, in milliseconds."""

    def __init__(self, surroundings, command):
        environment = dict(surroundings.environment, NOTIFY_SOCKET=str(surroundings.notify_path))
        surroundings.forget()
        begin = time.monotonic()
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        surroundings.heard("READY=1")
        self.ready = 1000 * (time.monotonic() - begin)
        self.client = Client(surroundings.control)
        self.client.ask(RELOAD)
        self.answered = 1000 * (time.monotonic() - begin)

    def idle(self):
        self.client.ask(running_service.ATTACH, running_service.UNIT)
        time.sleep(0.5)
        before = wake_ups(self.process.pid)
        time.sleep(IDLE_SECONDS)
        return wake_ups(self.process.pid) - before

    def end(self, surroundings):
        self.client.close()
        self.process.kill()
        self.process.wait()
        surroundings.control.unlink()


def main(folder, service, runs=30):
    surroundings = Surroundings()
    try:
        surroundings.control.parent.mkdir(mode=0o700)
        stored.store(surroundings.preferences, stored.full())
        commands = {"vexil3d": [service, "--midi", "none"],
                    "bare": [f"{folder}/bare_service", str(surroundings.control)]}
        ready = {name: [] for name in commands}
        answered = {name: [] for name in commands}
        idle = {}
        for run in range(runs + 1):
            for name, command in commands.items():
                start = Start(surroundings, command)
                if run > 0:  # the first start of each is not warm
                    ready[name].append(start.ready)
                    answered[name].append(start.answered)
                if run == runs:
                    idle[name] = start.idle()
                start.end(surroundings)
    finally:
        surroundings.remove()

    middle = {name: statistics.median(values) for name, values in ready.items()}
    print(f"{'':44}{'vexil3d':>12}{'bare':>12}")
    print(f"{f'start to ready, ms ({runs} runs)':44}{middle['vexil3d']:12.1f}{middle['bare']:12.1f}"
          f"    (at most {LONGEST_START_MS:.0f})")
    for title, choose in (("  fastest", min), ("  slowest", max)):
        print(f"{title:44}{choose(ready['vexil3d']):12.1f}{choose(ready['bare']):12.1f}")
    print(f"{'start to first answer, ms':44}{statistics.median(answered['vexil3d']):12.1f}"
          f"{statistics.median(answered['bare']):12.1f}")
    print(f"{f'wake-ups in {IDLE_SECONDS:.0f} s, panel attached':44}{idle['vexil3d']:12d}{idle['bare']:12d}"
          "    (none allowed)")
    return 0 if middle["vexil3d"] <= LONGEST_START_MS and idle["vexil3d"] == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], *(int(number) for number in sys.argv[3:4])))
