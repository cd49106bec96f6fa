"""A running vexil3d with a home and a folder for running services of its own, and clients that speak its channel as bare
packets. For tests and benchmarks; a test program ends with

    if __name__ == "__main__":
        running_service.main()

and is called with the path of vexil3d as its first argument.
"""

import json
import os
import pathlib
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

import stored_configuration as stored

SKIPPED = 77
CONTROL = "vexil3/com.sonavert.driver.vexil3"
ATTACH, SET, GET, STATUS, RELOAD, NETWORK, WATCH, PANIC, MONITOR = 1, 2, 3, 4, 5, 6, 7, 8, 9
UNIT = 175
LONGEST_DATA = 65536
PATIENCE = 30.0  # seconds; a busy computer is slow
# Where a system-wide installation keeps what it shares: a service on such a machine uses these folders.
SYSTEM_WIDE = ("/run/vexil3", "/var/lib/vexil3/preferences")

program = None


def request(sequence, kind, number=0, length=None, payload=b""):
    """One request as its packet; `length` is that of the payload unless it is given."""
    return struct.pack("<IIII", sequence, kind, number, len(payload) if length is None else length) + payload


class Client:
    """One connection."""

    def __init__(self, path, seconds=PATIENCE):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.socket.settimeout(seconds)
        self.socket.connect(str(path))
        self.sequence = 100

    def send(self, packet):
        self.socket.send(packet)

    def reply(self):
        """The next reply as (sequence, error, data); None when the connection was closed."""
        try:
            packet = self.socket.recv(12 + LONGEST_DATA)
        except ConnectionError:
            return None
        if not packet:
            return None
        sequence, error, length = struct.unpack_from("<III", packet)
        assert len(packet) == 12 + length, packet
        return sequence, error, packet[12:]

    def ask(self, kind, number=0, length=None, payload=b""):
        """(error, data) of one request."""
        self.sequence += 1
        self.send(request(self.sequence, kind, number, length, payload))
        sequence, error, data = self.reply()
        assert sequence == self.sequence, (sequence, self.sequence)
        return error, data

    def attach(self):
        return self.ask(ATTACH, UNIT)[0]

    def set(self, option, payload=b""):
        return self.ask(SET, option, payload=payload)[0]

    def status(self):
        error, data = self.ask(STATUS, length=LONGEST_DATA)
        assert error == 0, error
        return json.loads(data)

    def close(self):
        self.socket.close()


def test_record(port, target, target_port, flags=0xC0):
    return bytes((flags, port, 0, target_port)) + target.encode() + b"\0\0\0"


def packet_list(*packets):
    return struct.pack("<I", len(packets)) + b"".join(struct.pack("<QH", 0, len(data)) + data for data in packets)


class Surroundings:
    """A home and a folder for running services, for services one after the other."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vexil3d-"))
        self.home = self.folder / "home"
        self.runtime = self.folder / "run"
        self.home.mkdir()
        self.runtime.mkdir(mode=0o700)
        self.control = self.runtime / CONTROL
        self.preferences = self.home / ".config/vexil3/preferences/any-user"
        self.notify_path = self.folder / "notify"
        self.notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.notify.bind(str(self.notify_path))
        kept = ("PATH", "LD_LIBRARY_PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS")
        self.environment = {name: os.environ[name] for name in kept if name in os.environ}
        self.environment.update(HOME=str(self.home), XDG_RUNTIME_DIR=str(self.runtime), LANG="C.UTF-8",
                                # No service of a test speaks to the system's own programs.
                                DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={self.folder}/no-system-bus")

    def remove(self):
        self.notify.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def heard(self, text, seconds=PATIENCE):
        """Waits for a message to the service manager that holds `text`, and returns it."""
        end = time.monotonic() + seconds
        while select.select([self.notify], [], [], max(0.0, end - time.monotonic()))[0]:
            message = self.notify.recv(4096).decode()
            if text in message:
                return message
        raise TimeoutError(f"the service manager never heard {text}")

    def forget(self):
        """Forgets what the service manager has heard so far."""
        while select.select([self.notify], [], [], 0)[0]:
            self.notify.recv(4096)

    def store(self, changes=()):
        values = stored.defaults()
        values.update(changes)
        stored.store(self.preferences, values)


class Service:
    """A running vexil3d. Its log is in `log()`."""

    def __init__(self, surroundings, arguments=("--midi", "none"), environment=None, prefix=(), wait=True, **options):
        self.surroundings = surroundings
        self.log_path = surroundings.folder / f"log-{time.monotonic_ns()}"
        variables = dict(surroundings.environment, NOTIFY_SOCKET=str(surroundings.notify_path), **(environment or {}))
        if wait:
            surroundings.forget()
        with open(self.log_path, "wb") as log:
            self.process = subprocess.Popen([*prefix, program, *arguments], env=variables, stdin=subprocess.DEVNULL,
                                            stdout=log, stderr=subprocess.STDOUT, **options)
        if wait:
            try:
                surroundings.heard("READY=1")
            except TimeoutError:
                self.kill()
                raise RuntimeError("vexil3d did not become ready: " + self.log()) from None

    @property
    def pid(self):
        return self.process.pid

    def log(self):
        return self.log_path.read_text(errors="replace")

    def client(self):
        return Client(self.surroundings.control)

    def end(self, number=signal.SIGTERM):
        """Ends the service and returns its exit status."""
        self.process.send_signal(number)
        return self.process.wait(PATIENCE)

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait(PATIENCE)


class ServiceTest(unittest.TestCase):
    def setUp(self):
        self.surroundings = Surroundings()
        self.addCleanup(self.surroundings.remove)

    def start(self, *arguments, **options):
        service = Service(self.surroundings, *arguments, **options)
        self.addCleanup(service.kill)
        return service

    def client(self):
        client = Client(self.surroundings.control)
        self.addCleanup(client.close)
        return client

    def panel(self):
        client = self.client()
        self.assertEqual(client.attach(), 0)
        return client


def wait_until(condition, seconds=PATIENCE):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError("it did not come about")
        time.sleep(0.005)


def wake_ups(pid):
    """How often the threads of a process have gone to sleep so far."""
    count = 0
    for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"):
        for line in status.read_text().splitlines():
            if line.startswith("voluntary_ctxt_switches:"):
                count += int(line.split()[1])
    return count


def main():
    global program
    program = sys.argv.pop(1)
    present = [folder for folder in SYSTEM_WIDE if os.path.exists(folder)]
    if present:
        print("Skipped: a system-wide installation is here, whose folders a service would use: " + ", ".join(present))
        sys.exit(SKIPPED)
    unittest.main(verbosity=2)
