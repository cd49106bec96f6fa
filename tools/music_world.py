"""A JACK server of one's own, without sound hardware, and music programs on it. Nothing of another server of this computer is
touched. Everything ends with the process that made it.

    with JackServer(environment) as server:
        program = MusicProgram(path, server.environment, "keys")
"""

import ctypes
import fcntl
import json
import os
import pathlib
import queue
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time

import own_shared_memory

_libc = ctypes.CDLL(None)
_PR_SET_PDEATHSIG = 1
PATIENCE = 15.0
LONG_PATIENCE = 60.0  # for programs that would be found dead otherwise

def obstacle():
    """Why there can be no JACK server on this machine; empty when there can be one."""
    return "" if shutil.which("jackd") else "jackd is not installed"


def _end_with_parent():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM, 0, 0, 0)


def _take_name():
    """A server name that no running test has, and the file that keeps it taken. A computer has room for eight names in all, and a
    server that was killed gives its name back only to one that takes the same."""
    for number in range(100):
        name = f"vexil-{os.getuid()}-{number}"
        lock = open(f"/dev/shm/{name}", "w", encoding="ascii")
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return name, lock
        except BlockingIOError:
            lock.close()
    raise RuntimeError("there are too many tests under way")


class JackServer:
    """jackd on its dummy driver. `patient`: it waits for programs that are late, so that on a busy computer no cycle of theirs
    is lost; but it waits for seconds for one that was killed, too."""

    def __init__(self, environment, frames=128, patient=False):
        own_shared_memory.take()
        self.name, self.lock = _take_name()
        self.frames = frames
        self.patience = ("-S", "-t", "20000") if patient else ()
        # By these a program finds this server and no other.
        self.variables = {"JACK_DEFAULT_SERVER": self.name, "JACK_NO_AUDIO_RESERVATION": "1", "JACK_NO_START_SERVER": "1"}
        self.environment = {**environment, **self.variables}
        self.process = None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.end()

    def start(self):
        """Returns when clients can be opened; the time of that on the monotonic clock."""
        self.process = subprocess.Popen(
            ["jackd", "-n", self.name, "-R", *self.patience, "-p", "1024", "-d", "dummy", "-C", "0", "-P", "0",
             "-r", "48000", "-p", str(self.frames)],
            env=self.environment, preexec_fn=_end_with_parent, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT)
        end = time.monotonic() + PATIENCE
        while not self._is_there():
            if self.process.poll() is not None or time.monotonic() > end:
                self.end()
                raise RuntimeError("jackd did not start: " + self.process.stdout.read().decode(errors="replace"))
            time.sleep(0.01)
        threading.Thread(target=self._drain, args=(self.process.stdout,), daemon=True).start()
        return time.monotonic()

    @staticmethod
    def _drain(stream):
        with stream:
            for _ in stream:
                pass

    def _files(self):
        return [file for file in pathlib.Path("/dev/shm").glob("jack*") if f"_{self.name}_" in file.name]

    def _is_there(self):
        return bool([file for file in self._files() if file.is_socket()])

    def kill(self):
        """Kills it without warning, and removes what such a death leaves behind."""
        self.process.kill()
        self.process.wait()
        self._remove_files()

    def end(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self._remove_files()
        self.lock.close()

    def _remove_files(self):
        for file in self._files():
            file.unlink(missing_ok=True)


class RunningService:
    """vexil3d as a music program's user has it. `status()` is what it tells of itself."""

    def __init__(self, program, environment, log_path, midi="jack"):
        self.log_path = log_path
        self.control = pathlib.Path(environment["XDG_RUNTIME_DIR"]) / "vexil3/com.sonavert.driver.vexil3"
        with open(log_path, "ab") as log:
            self.process = subprocess.Popen([program, "--midi", midi], env=environment, stdin=subprocess.DEVNULL,
                                            stdout=log, stderr=log, preexec_fn=_end_with_parent)
        end = time.monotonic() + PATIENCE
        while self.status() is None:
            if self.process.poll() is not None or time.monotonic() > end:
                raise RuntimeError("vexil3d did not start: " + self.log())
            time.sleep(0.005)

    def status(self):
        """None while it does not answer."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as client:
            client.settimeout(PATIENCE)
            try:
                client.connect(str(self.control))
                client.send(struct.pack("<IIII", 1, 4, 0, 65536))
                return json.loads(client.recv(12 + 65536)[12:])
            except (FileNotFoundError, ConnectionError):
                return None

    def log(self):
        return self.log_path.read_text(errors="replace")

    def kill(self):
        self.process.kill()
        self.process.wait()

    def end(self):
        if self.process.poll() is None:
            self.process.terminate()
            self.process.wait(PATIENCE)
        return self.process.returncode


class MusicProgram:
    """A running music_program, with one port to write from and one to read at unless told otherwise."""

    def __init__(self, program, environment, name, writers=1, readers=1):
        self.name = name
        self.process = subprocess.Popen([str(program), name, str(writers), str(readers)], env=environment,
                                        preexec_fn=_end_with_parent, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.answers = queue.Queue()
        self.lock = threading.Condition()
        self.events = []
        self.kept = []  # (reader, time in seconds, bytes)
        threading.Thread(target=self._read, daemon=True).start()
        # JACK lets a program in when every other has been told of it, on a busy computer after many seconds.
        self.wait(lambda: "ready" in self.events, f"the music program {name}", LONG_PATIENCE)

    def _read(self):
        for line in self.process.stdout:
            answer = json.loads(line)
            with self.lock:
                if "event" in answer:
                    self.events.append(answer["event"])
                elif "heard" in answer:
                    self.kept.append((answer["heard"], answer["time"] / 1e9, bytes.fromhex(answer["bytes"])))
                else:
                    self.answers.put(answer)
                self.lock.notify_all()
        with self.lock:
            self.events.append("end")
            self.lock.notify_all()

    def wait(self, condition, what, seconds=PATIENCE):
        """Waits until a condition on what came in is true."""
        with self.lock:
            if not self.lock.wait_for(lambda: condition() or "end" in self.events, seconds) or not condition():
                raise TimeoutError(f"{what} did not come within {seconds} s; heard: {self.kept[-20:]}, {self.events}")

    def ask(self, command):
        """The answer to one command of music_program."""
        self.process.stdin.write(command.encode() + b"\n")
        self.process.stdin.flush()
        try:
            return self.answers.get(timeout=LONG_PATIENCE)
        except queue.Empty:
            raise TimeoutError(f"{self.name} did not answer within {LONG_PATIENCE} s: {self.events}, "
                               f"exit status {self.process.poll()}") from None

    def connect(self, source, destination):
        return self.ask(f"connect {source}\t{destination}")["ok"]

    def disconnect(self, source, destination):
        return self.ask(f"disconnect {source}\t{destination}")["ok"]

    def play_to(self, address, writer=0):
        return self.connect(f"{self.name}:out-{writer}", address)

    def read_from(self, address, reader=0):
        return self.connect(address, f"{self.name}:in-{reader}")

    def ports(self):
        """The service's ports: those that programs write to, and those that they read from."""
        found = self.ask("ports")
        return found["written"], found["read"]

    def write(self, *messages, writer=0):
        for message in messages:
            self.ask(f"write {writer} {bytes(message).hex()}")

    def heard(self):
        """What was heard so far, one entry a message. Nothing is kept before `ask("listen")`."""
        with self.lock:
            return [message for _, _, message in self.kept]

    def forget(self, *messages):
        """Keeps nothing of what was heard so far, or everything but these messages."""
        with self.lock:
            self.kept = [kept for kept in self.kept if messages and kept[2] not in messages]

    def wait_heard(self, *messages, seconds=PATIENCE):
        """Waits until exactly these messages have been heard since the last `forget`; returns when the last one came in."""
        wanted = [bytes(message) for message in messages]
        self.wait(lambda: [message for _, _, message in self.kept] == wanted, f"{[m.hex() for m in wanted]}", seconds)
        return self.kept[-1][1] if wanted else 0.0

    def sounding(self, reader=0):
        return self.ask("report")["readers"][reader]["sounding"]

    def kill(self):
        self.process.kill()
        self.process.wait()

    def end(self):
        if self.process.poll() is None:
            self.process.stdin.close()
            try:
                self.process.wait(5)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
