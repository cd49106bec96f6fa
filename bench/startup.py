#!/usr/bin/python3
"""Usage: startup.py FOLDER_OF_BENCHMARKS PANEL [RUNS]

Start to first painted frame, memory and idle wake-ups of the panel, beside a bare window with 36 plain controls: both on a
display of their own without a window manager, by turns, warm. Prints a table of medians and the ratio or difference. Exit
status 1 when a bound is missed.
"""

import pathlib
import re
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
import private_desktop  # noqa: E402
import stored_configuration  # noqa: E402

SETTLE_SECONDS = 1.0
IDLE_SECONDS = 10.0
LONGEST_START_RATIO = 1.25
MOST_EXTRA_KIB = 4 * 1024


class Run:
    """One start of a program under the probe."""

    def __init__(self, desktop, probe, program):
        self.probe = desktop.start([probe, program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL)
        for line in self.probe.stdout:
            # The panel's own lines come here as well.
            match = re.fullmatch(rb"(\d+) (\d+\.\d+)\n", line)
            if match:
                self.pid, self.milliseconds = int(match[1]), float(match[2])
                return
        raise RuntimeError(f"{program} showed no window")

    def close(self):
        self.probe.stdin.close()
        self.probe.wait(10)
        self.probe.stdout.close()


def pss_kib(pid):
    return int(re.search(r"^Pss:\s+(\d+) kB", pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text(), re.MULTILINE)[1])


def wake_ups(pid):
    """How often the threads of a process have gone to sleep so far."""
    count = 0
    for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"):
        count += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status.read_text(), re.MULTILINE)[1])
    return count


def main(folder, panel, runs=15):
    probe, bare = f"{folder}/first_frame", f"{folder}/bare_window"
    times = {panel: [], bare: []}
    memory = {panel: [], bare: []}
    idle = {}
    with private_desktop.PrivateDesktop(assistive=False, window_manager=False) as desktop:
        # As at a user's desk, where no assistive technology asks for more.
        desktop.environment.pop("QT_LINUX_ACCESSIBILITY_ALWAYS_ON")
        stored_configuration.store(desktop.preferences, stored_configuration.full())
        for run in range(runs + 1):
            for program in times:
                one = Run(desktop, probe, program)
                if run > 0:  # the first start of each is not warm
                    times[program].append(one.milliseconds)
                    time.sleep(SETTLE_SECONDS)
                    memory[program].append(pss_kib(one.pid))
                if run == runs:
                    before = wake_ups(one.pid)
                    time.sleep(IDLE_SECONDS)
                    idle[program] = wake_ups(one.pid) - before
                one.close()

    start = {program: statistics.median(values) for program, values in times.items()}
    pss = {program: statistics.median(values) for program, values in memory.items()}
    ratio, extra = start[panel] / start[bare], pss[panel] - pss[bare]
    print(f"{'':44}{'panel':>12}{'bare window':>14}{'':4}")
    print(f"{f'start to first painted frame, ms ({runs} runs)':44}{start[panel]:12.1f}{start[bare]:14.1f}"
          f"    ratio {ratio:.2f} (at most {LONGEST_START_RATIO})")
    for name, choose in (("  fastest", min), ("  slowest", max)):
        print(f"{name:44}{choose(times[panel]):12.1f}{choose(times[bare]):14.1f}")
    print(f"{'memory (PSS), KiB':44}{pss[panel]:12.0f}{pss[bare]:14.0f}    {extra:+.0f} (at most +{MOST_EXTRA_KIB})")
    print(f"{f'wake-ups in {IDLE_SECONDS:.0f} s of idling':44}{idle[panel]:12d}{idle[bare]:14d}    (none allowed)")
    return 0 if ratio <= LONGEST_START_RATIO and extra <= MOST_EXTRA_KIB and idle[panel] == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], *(int(number) for number in sys.argv[3:4])))
