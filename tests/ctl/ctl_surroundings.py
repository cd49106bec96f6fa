"""A computer of its own for one test: folders for preferences and the control channel, vexil3ctl, and vexil3d without a MIDI
system."""
import os
import pathlib
import socket
import struct
import subprocess
import tempfile
import time

CONTROL = "com.sonavert.driver.vexil3"
PATIENCE = 30


class Surroundings:
    def __init__(self, test, vexil3ctl, vexil3d=None):
        temporary = tempfile.TemporaryDirectory(prefix="vexil-ctl-")
        test.addCleanup(temporary.cleanup)
        self.test, self.vexil3ctl, self.vexil3d = test, vexil3ctl, vexil3d
        self.root = pathlib.Path(temporary.name)
        for name in ("home", "run"):
            (self.root / name).mkdir(mode=0o700)
        self.socket = self.root / "run" / "vexil3" / CONTROL
        self.preferences = self.root / "home" / ".config" / "vexil3" / "preferences" / "any-user"
        self.environment = {"HOME": str(self.root / "home"), "XDG_RUNTIME_DIR": str(self.root / "run"),
                            "PATH": os.environ["PATH"]}

    def ctl(self, *arguments, **options):
        """The finished program; `options` as for subprocess.run."""
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
        return subprocess.run([self.vexil3ctl, *map(str, arguments)], env=self.environment, cwd=self.root, text=True,
                              timeout=60, check=False, **options)

    def start_service(self):
        """vexil3d, ready to answer, ended with the test."""
        service = subprocess.Popen([self.vexil3d, "--midi", "none"], env=self.environment, cwd=self.root,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.test.addCleanup(service.wait)
        self.test.addCleanup(service.kill)
        end = time.monotonic() + PATIENCE
        while True:
            try:
                self.connect().close()
                return service
            except OSError:
                if time.monotonic() > end or service.poll() is not None:
                    raise
                time.sleep(0.01)

    def connect(self):
        link = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        link.settimeout(PATIENCE)
        try:
            link.connect(str(self.socket))
        except OSError:
            link.close()
            raise
        return link

    def exchange(self, link, packet):
        link.send(packet)
        return link.recv(1 << 17)

    def attach(self):
        """A link that has the service attached, as a panel has."""
        link = self.connect()
        self.test.addCleanup(link.close)
        reply = self.exchange(link, struct.pack("<IIII", 1, 1, 175, 0))
        self.test.assertEqual(reply, struct.pack("<III", 1, 0, 0))
        return link
