#!/usr/bin/python3
"""Usage: pipewire_test.py PROGRAM [ARGUMENT...]

Runs a JACK test on PipeWire's libjack, with a session bus and a runtime folder of its own. The test starts PipeWire itself.
Every test runs, and is tried once. PipeWire does not wait for its clients, though: where one gets no processor in time, a cycle
and what was in it are lost, or heard twice. Beside each test two programs that are connected to each other, and not to the service,
watch for that: what one of them misses or hears twice is PipeWire's fault. Only a test that failed while they saw it is tried again,
twice at the most, and said to have been; one that failed without such a fault has failed.
Exit status: the test's; 77 when this machine lacks something.
"""

import glob
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
TRIES = 3
# What PipeWire takes where no program asks for less.
QUANTUM = "1024/48000"


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def run(environment, results):
    """The exit status of the tests; of those that failed when PipeWire did, that of their last try."""
    tests = "*"
    for left in reversed(range(TRIES)):
        results.unlink(missing_ok=True)
        done = subprocess.run(["dbus-run-session", "--", *sys.argv[1:], f"--gtest_filter={tests}",
                               f"--gtest_output=json:{results}"], env=environment, check=False)
        failed = failures(results)
        for name, faults in failed.items():
            print(f"Failed: {name}; cycles that PipeWire meanwhile lost or repeated without the service: {faults}", flush=True)
        if done.returncode == 0 or not failed or 0 in failed.values() or left == 0:
            break
        tests = ":".join(failed)
        print(f"Tried again: {tests}", flush=True)
    return done.returncode


def failures(results):
    """The tests that failed, by name, and the faults of PipeWire seen beside each; empty when the program did not come to its end."""
    if not results.exists():
        return {}
    return {f"{suite['name']}.{test['name']}": int(test.get("faults", 0))
            for suite in json.loads(results.read_text())["testsuites"] for test in suite["testsuite"] if test.get("failures")}


def main():
    for program in ("pipewire", "wireplumber", "dbus-run-session"):
        if shutil.which(program) is None:
            skip(f"{program} is not installed")
    libraries = glob.glob("/usr/lib/*/pipewire-0.3/jack/libjack.so.0")
    if not libraries:
        skip("PipeWire's libjack is not installed")
    with tempfile.TemporaryDirectory(prefix="vexil-pipewire-") as folder:
        os.chmod(folder, 0o700)
        # It would make note-offs of note-ons with velocity 0.
        properties = "{ jack.fix-midi-events = false }"
        environment = dict(os.environ, VEXIL_TEST_PIPEWIRE="1", PIPEWIRE_QUANTUM=QUANTUM,
                           PIPEWIRE_PROPS=properties, HOME=folder,
                           XDG_RUNTIME_DIR=folder, XDG_CONFIG_HOME=folder + "/config", XDG_STATE_HOME=folder + "/state",
                           XDG_CACHE_HOME=folder + "/cache", XDG_DATA_HOME=folder + "/data",
                           LD_LIBRARY_PATH=os.path.dirname(libraries[0]))
        return run(environment, pathlib.Path(folder) / "results.json")


if __name__ == "__main__":
    sys.exit(main())
