"""PipeWire of one's own, in a runtime folder that the caller owns. Nothing of another PipeWire of this computer is touched.
Everything ends with the process that made it.

    with PipeWireServer(environment) as server:      # environment["XDG_RUNTIME_DIR"] is its folder
        subprocess.Popen([program], env=server.environment)
"""

import ctypes
import glob
import os
import pathlib
import shutil
import signal
import subprocess
import time

PATIENCE = 15.0
_libc = ctypes.CDLL(None)
_PR_SET_PDEATHSIG = 1
_LIBRARIES = "/usr/lib/*/pipewire-0.3/jack/libjack.so.0"


def obstacle(session_manager=True):
    """Why there can be no PipeWire on this machine; empty when there can be one."""
    for program in ("pipewire", "dbus-daemon") + (("wireplumber",) if session_manager else ()):
        if shutil.which(program) is None:
            return f"{program} is not installed"
    return "" if glob.glob(_LIBRARIES) else "PipeWire's libjack is not installed"


def _end_with_parent():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM, 0, 0, 0)


class PipeWireServer:
    """`session_manager`: with WirePlumber, as a desktop has it."""

    def __init__(self, environment, session_manager=True):
        folder = pathlib.Path(environment["XDG_RUNTIME_DIR"])
        self.socket = folder / "pipewire-0"
        self.session_manager = session_manager
        self.bus = f"unix:path={folder}/session-bus"
        self.environment = dict(
            environment, DBUS_SESSION_BUS_ADDRESS=self.bus, PIPEWIRE_QUANTUM="64/48000",
            # It would make note-offs of note-ons with velocity 0.
            PIPEWIRE_PROPS="{ jack.fix-midi-events = false }",
            LD_LIBRARY_PATH=os.path.dirname(glob.glob(_LIBRARIES)[0]))
        self.processes = []

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.end()

    def _spawn(self, *command):
        self.processes.append(subprocess.Popen(command, env=self.environment, preexec_fn=_end_with_parent,
                                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                               stderr=subprocess.DEVNULL))

    def start(self):
        """Returns when clients can be opened."""
        self._spawn("dbus-daemon", "--session", "--nofork", "--nopidfile", f"--address={self.bus}")
        self._spawn("pipewire")
        if self.session_manager:
            self._spawn("wireplumber")
        end = time.monotonic() + PATIENCE
        while not self.socket.exists():
            if time.monotonic() > end:
                self.end()
                raise RuntimeError("PipeWire did not start")
            time.sleep(0.01)

    def pause(self):
        """It stands still until `resume`, and does not answer."""
        self.processes[1].send_signal(signal.SIGSTOP)

    def resume(self):
        self.processes[1].send_signal(signal.SIGCONT)

    def end(self):
        for process in reversed(self.processes):
            process.send_signal(signal.SIGCONT)
            process.terminate()
        for process in self.processes:
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self.processes = []
