#!/usr/bin/python3
"""Usage: pipewire_test.py PROGRAM [ARGUMENT...]

Runs a JACK test on PipeWire's libjack, with a session bus and a runtime folder of its own. The test starts PipeWire itself.
Every test runs, and is tried once.
Exit status: the test's; 77 when this machine lacks something.
"""

import glob
import os
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
# What PipeWire takes where no program asks for less.
QUANTUM = "1024/48000"


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


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
        return subprocess.run(["dbus-run-session", "--", *sys.argv[1:]], env=environment, check=False).returncode


if __name__ == "__main__":
    sys.exit(main())
