"""Avahi on the computers of `network_world`: each has a system bus and an avahi-daemon of its own, which speak to the computer's network
and to nothing else. Where avahi-daemon is not installed, its packages are downloaded and unpacked, never installed: installing them
would start one that speaks to the networks of this machine.

    avahi_world.programs("build/avahi")     # raises Unavailable
    avahi = avahi_world.Avahi(computer)     # before the computer's service is started
"""

import contextlib
import ctypes
import fcntl
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time

PACKAGES = ("avahi-daemon", "libavahi-core7", "libavahi-common3", "libdaemon0")
_BUS = "/usr/bin/dbus-daemon"
_DAEMON = "usr/sbin/avahi-daemon"
_CLONE_NEWNS = 0x00020000
_MS_BIND, _MS_REC, _MS_PRIVATE = 0x1000, 0x4000, 1 << 18
_libc = ctypes.CDLL(None, use_errno=True)
_root = None


class Unavailable(Exception):
    """Why there can be no Avahi here."""


def programs(cache):
    """Finds avahi-daemon, in the system or below a folder in which it is kept from then on."""
    global _root
    if not os.access(_BUS, os.X_OK):
        raise Unavailable(f"there is no {_BUS}")
    if os.access("/" + _DAEMON, os.X_OK):
        _root = pathlib.Path("/")
        return
    cache = pathlib.Path(cache)
    cache.mkdir(parents=True, exist_ok=True)
    with open(cache / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not (cache / "root" / _DAEMON).exists():
            _download(cache)
    _root = cache / "root"


def _download(cache):
    for tool in ("apt-get", "dpkg-deb"):
        if not shutil.which(tool):
            raise Unavailable(f"avahi-daemon is not installed, and there is no {tool} to get it with")
    with tempfile.TemporaryDirectory(dir=cache) as folder:
        command = ["apt-get", "-q", "-o", "APT::Sandbox::User=root", "download", *PACKAGES]
        try:
            subprocess.run(command, cwd=folder, check=True, capture_output=True, text=True, timeout=60)
            for package in pathlib.Path(folder).glob("*.deb"):
                subprocess.run(["dpkg-deb", "-x", package, f"{folder}/root"], check=True, capture_output=True)
        except (OSError, subprocess.SubprocessError) as problem:
            raise Unavailable("avahi-daemon is not installed, and its packages cannot be downloaded: "
                              f"{getattr(problem, 'stderr', None) or problem}") from None
        shutil.rmtree(cache / "root", ignore_errors=True)
        os.rename(f"{folder}/root", cache / "root")


class Avahi:
    """The system bus and the avahi-daemon of a computer, whose programs find them from now on."""

    def __init__(self, computer):
        self.computer = computer
        self.folder = computer.surroundings.folder
        self.bus_path = self.folder / "system-bus"
        self.daemon = None
        (self.folder / "bus.conf").write_text(
            '<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN" '
            '"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">'
            f"<busconfig><type>system</type><listen>unix:path={self.bus_path}</listen><auth>EXTERNAL</auth>"
            '<policy context="default"><allow user="*"/><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy></busconfig>')
        # The card's own network, and of the names only what a service needs.
        (self.folder / "avahi.conf").write_text(
            "[server]\nallow-interfaces=net0,spare\nuse-ipv6=no\n"
            "[wide-area]\nenable-wide-area=no\n"
            "[publish]\npublish-hinfo=no\npublish-workstation=no\n[rlimits]\n")
        (self.folder / "passwd").write_text("root:x:0:0::/root:/bin/sh\navahi:x:0:0::/run:/bin/false\n")
        (self.folder / "group").write_text("root:x:0:\navahi:x:0:\nnetdev:x:0:\n")
        computer.surroundings.environment["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={self.bus_path}"
        self.log = open(self.folder / "avahi.log", "ab")
        self.bus = self._start(computer.enter, _BUS, "--nofork", "--nopidfile", "--nosyslog",
                               f"--config-file={self.folder / 'bus.conf'}")

    def _start(self, enter, *command):
        environment = dict(self.computer.surroundings.environment)
        if _root != pathlib.Path("/"):
            environment["LD_LIBRARY_PATH"] = f"{_root}/usr/lib/{_machine()}:" + environment.get("LD_LIBRARY_PATH", "")
        return subprocess.Popen(command, env=environment, preexec_fn=enter, stdin=subprocess.DEVNULL, stdout=self.log,
                                stderr=subprocess.STDOUT)

    def _enter(self):
        """Besides the computer, a folder /run of its own, and a user avahi, whom the daemon looks for but need not become."""
        self.computer.enter()
        mounts = [(b"none", b"/", None, _MS_REC | _MS_PRIVATE), (b"tmpfs", b"/run", b"tmpfs", 0)]
        mounts += [(os.fsencode(self.folder / name), b"/etc/" + name.encode(), None, _MS_BIND) for name in ("passwd", "group")]
        if _libc.unshare(_CLONE_NEWNS) != 0 or any(_libc.mount(*mount, None) != 0 for mount in mounts):
            raise OSError(ctypes.get_errno(), "no mounts of its own")

    def start(self):
        """Starts the daemon; it is on the bus somewhat later."""
        while not self.bus_path.exists():
            assert self.bus.poll() is None, self.report()
            time.sleep(0.005)
        self.daemon = self._start(self._enter, str(_root / _DAEMON), "--no-drop-root", "--no-chroot", "--no-rlimits",
                                  "-f", str(self.folder / "avahi.conf"))

    def kill(self):
        """As if it had crashed: it says good-bye to nobody."""
        self.daemon.kill()
        self.daemon.wait()

    def stop(self):
        self.daemon.send_signal(signal.SIGSTOP)

    def go_on(self):
        self.daemon.send_signal(signal.SIGCONT)

    def report(self):
        self.log.flush()
        return (self.folder / "avahi.log").read_text(errors="replace")

    def close(self):
        for process in (self.daemon, self.bus):
            if process:
                with contextlib.suppress(ProcessLookupError):
                    process.kill()
                process.wait()
        self.log.close()


def _machine():
    return next((_root / "usr/lib").glob("*-linux-gnu*")).name
