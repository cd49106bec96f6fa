"""A desktop of one's own: a display without a screen, a window manager, a session bus and assistive technology, with a
home folder that is thrown away. Nothing in it reaches the user's desktop, preferences or system bus.

    with PrivateDesktop() as desktop:
        panel = desktop.start([program])

Everything started in it ends with it, and with the process that made it.
"""

import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time

SKIPPED = 77  # exit status by which a test says that the machine lacks what it needs
AT_SPI_LAUNCHER = "/usr/libexec/at-spi-bus-launcher"

_libc = ctypes.CDLL(None, use_errno=True)
_PR_SET_PDEATHSIG = 1
_PR_SET_CHILD_SUBREAPER = 36


# Where a system-wide installation keeps what it shares. A panel on such a machine uses these folders, and no home of its own
# keeps it from there.
SYSTEM_WIDE = ("/Library/Logs", "/var/lib/vexil3/preferences", "/run/vexil3")


def obstacle():
    """Why there can be no private desktop with a panel on this machine, as a text; empty when there can be one."""
    missing = [name for name in ("Xvfb", "openbox", "xprop", "dbus-daemon") if not shutil.which(name)]
    if not os.path.exists(AT_SPI_LAUNCHER):
        missing.append(AT_SPI_LAUNCHER)
    if missing:
        return "missing: " + ", ".join(missing)
    present = [folder for folder in SYSTEM_WIDE if os.path.exists(folder)]
    if present:
        return "a system-wide installation is here, whose folders a panel would use: " + ", ".join(present)
    return ""


def wait_until(condition, seconds=30.0, what="the condition"):
    """The first true result of `condition`, asked again and again. Raises TimeoutError after `seconds`."""
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise TimeoutError(f"{what} did not come within {seconds} s")
        time.sleep(0.02)


class PrivateDesktop:
    def __init__(self, size="1280x1024", assistive=True, window_manager=True):
        """`size` of the display in pixels. `assistive`: with AT-SPI, so that a program's controls can be used by name."""
        self.size = size
        self.assistive = assistive
        self.window_manager = window_manager
        self.processes = []

    def __enter__(self):
        # Whatever a child leaves behind becomes ours, so that it can be ended.
        _libc.prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vexil3-"))
        self.homes = 0
        self.environment = {}
        try:
            self.new_home()
            self._start_services()
        except BaseException:
            self.__exit__(None, None, None)
            raise
        return self

    def __exit__(self, *_):
        for process in reversed(self.processes):
            end(process)
        self._end_orphans()
        shutil.rmtree(self.folder, ignore_errors=True)

    def new_home(self):
        """Gives the programs that are started from now on an empty home and an empty folder for running services."""
        self.homes += 1
        self.home = self.folder / f"home{self.homes}"
        self.runtime = self.folder / f"run{self.homes}"
        self.home.mkdir()
        self.runtime.mkdir(mode=0o700)
        self.preferences = self.home / ".config/vexil3/preferences/any-user"
        self.environment.update(HOME=str(self.home), XDG_RUNTIME_DIR=str(self.runtime))

    def _start_services(self):
        foreign = ("DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "AT_SPI_BUS_ADDRESS", "SESSION_MANAGER")
        kept = {
            name: value for name, value in os.environ.items()
            if name not in foreign and not name.startswith(("XDG_", "DBUS_", "QT_", "GTK_", "LC_"))
        }
        self.environment = kept | self.environment
        self.environment.update(
            LANG="C.UTF-8", TMPDIR=str(self.folder),
            # No test may reach the bus on which a restart of the computer can be asked for.
            DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={self.folder}/no-system-bus",
            QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", NO_AT_BRIDGE="1")
        self.environment["DISPLAY"] = ":" + self._start_telling(
            # -noreset: a display that starts anew when its last client goes takes those with it that are just coming.
            lambda fd: ["Xvfb", "-displayfd", str(fd), "-screen", "0", self.size + "x24", "-nolisten", "tcp",
                        "-noreset"])
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self._start_telling(
            lambda fd: ["dbus-daemon", "--session", "--nofork", f"--print-address={fd}"])
        if self.window_manager:
            self.start(["openbox", "--sm-disable"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            wait_until(self._is_managed, what="the window manager")
        if self.assistive:
            self.start([AT_SPI_LAUNCHER, "--launch-immediately", "--a11y=1"], stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)

    def _is_managed(self):
        reply = subprocess.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], env=self.environment, check=False,
                               capture_output=True, text=True)
        return "window id" in reply.stdout

    def _start_telling(self, command):
        """Starts a service that writes one line to a descriptor when it is ready; returns the line."""
        reading, writing = os.pipe()
        self.start(command(writing), pass_fds=(writing,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(writing)
        with os.fdopen(reading) as stream:
            line = stream.readline().strip()
        if not line:
            raise RuntimeError(f"{command(0)[0]} did not start")
        return line

    def start(self, command, environment=None, **options):
        """Starts a program on this desktop. `environment` changes its variables; None takes one away."""
        variables = dict(self.environment)
        for name, value in (environment or {}).items():
            if value is None:
                variables.pop(name, None)
            else:
                variables[name] = value
        process = subprocess.Popen(command, env=variables, preexec_fn=_die_with_parent, **options)
        self.processes.append(process)
        return process

    def adopt(self):
        """Makes this process itself a client of the desktop, for libraries that read the environment."""
        for name in list(os.environ):
            if name not in self.environment:
                del os.environ[name]
        os.environ.update(self.environment)

    def picture(self, path, window=None):
        """Saves a picture of the whole display or of one X window (its id)."""
        subprocess.run(["import", "-silent", "-window", window or "root", str(path)], env=self.environment, check=True)

    def _end_orphans(self):
        for _ in range(100):
            children = _children()
            if not children:
                return
            for pid in children:
                try:
                    os.kill(pid, signal.SIGKILL)
                    os.waitpid(pid, 0)
                except (ProcessLookupError, ChildProcessError):
                    pass  # it ended by itself


def end(process):
    """Ends a process that this one started, kindly first."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def _children():
    own = str(os.getpid())
    children = []
    for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = stat.read_text().rpartition(")")[2].split()
        except (FileNotFoundError, ProcessLookupError):
            continue
        if fields[1] == own:
            children.append(int(stat.parent.name))
    return children


def _die_with_parent():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM, 0, 0, 0)
