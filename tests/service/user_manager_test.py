#!/usr/bin/python3
"""Usage: user_manager_test.py VEXIL3D VEXIL3CTL UNIT_FOLDER

The units under a real service manager of a user, in name spaces of its own: whoever connects starts the service, a killed
one comes back, reload and end are the manager's. The units are checked as they are installed.
"""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import unittest

import running_service
from running_service import wait_until

stored = running_service.stored
MANAGER = "/lib/systemd/systemd"
CGROUPS = pathlib.Path("/sys/fs/cgroup")

units = None
vexil3ctl = None


def obstacle():
    """Why there can be no manager here; empty when there can be one."""
    if os.geteuid() != 0:
        return "needs root, to make name spaces"
    if not os.path.exists(MANAGER) or not shutil.which("unshare"):
        return "missing: systemd or unshare"
    if not any(CGROUPS.glob("*")):
        return "no control groups are mounted, without which no manager starts"
    if os.path.exists("/run/systemd/system"):
        return "this computer has a service manager of its own, whose groups of processes are not to be touched"
    if subprocess.run(["unshare", "--mount", "--pid", "--fork", "mount", "-t", "tmpfs", "none", "/run"], check=False,
                      capture_output=True).returncode != 0:
        return "the system gives no name spaces"
    return ""


def groups():
    return {group for group in CGROUPS.glob("*/*") if group.is_dir()} if CGROUPS.is_dir() else set()


class UserManager(running_service.ServiceTest):
    def setUp(self):
        super().setUp()
        before = groups()
        self.addCleanup(lambda: self.remove_groups(groups() - before))
        self.folder = self.surroundings.home / ".config/systemd/user"
        self.folder.mkdir(parents=True)
        # The manager of this test is root's, for whom the units are not.
        self.put_units(without="ConditionUser=")
        # A folder of its own where the system keeps what runs: no bus and no manager of the computer can be reached.
        # As the first process of its name space the manager would take itself for the computer's.
        start = (f"mount -t tmpfs none /run && mkdir -p /run/systemd/system && "
                 f"{MANAGER} --user --unit=basic.target & wait")
        with open(self.surroundings.folder / "manager", "wb") as log:
            self.manager = subprocess.Popen(
                ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "sh", "-c", start],
                env=self.surroundings.environment, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)
        self.addCleanup(self.end_manager)
        wait_until((self.surroundings.runtime / "systemd/private").exists)
        wait_until(lambda: self.ask("is-active", "basic.target").stdout == "active\n")

    def put_units(self, without):
        for unit in ("vexil3d.service", "vexil3d.socket"):
            lines = (units / unit).read_text().splitlines()
            built = {"ExecStart": f"{running_service.program} --midi none", "ExecReload": f"{vexil3ctl} reload"}
            lines = [f"{key}={built[key]}" if (key := line.partition("=")[0]) in built else line
                     for line in lines if not without or not line.startswith(without)]
            (self.folder / unit).write_text("\n".join(lines) + "\n")

    def end_manager(self):
        self.manager.kill()
        self.manager.wait(10)

    @staticmethod
    def remove_groups(made):
        def are_removed():
            for group in made:
                for folder in [*sorted(group.rglob("*/"), reverse=True), group]:
                    try:
                        folder.rmdir()
                    except OSError:
                        pass  # its last process is still going, or it is gone already
            return not any(group.exists() for group in made)
        wait_until(are_removed)

    def ask(self, *command):
        """Of the manager, which is asked over its own socket and from within its name spaces."""
        first = pathlib.Path(f"/proc/{self.manager.pid}/task/{self.manager.pid}/children").read_text().split()
        return subprocess.run(
            ["nsenter", f"--target={first[0]}", "--mount", "--pid", "systemctl", "--user", *command],
            env=self.surroundings.environment, capture_output=True, text=True, check=False, timeout=20)

    def start(self):
        started = self.ask("start", "vexil3d.socket")
        self.assertEqual((started.returncode, started.stderr), (0, ""))

    def shown(self, name):
        return self.ask("show", "vexil3d.service", "--value", "-p", name).stdout.strip()

    def test_whoever_connects_starts_the_service(self):
        self.start()
        self.assertEqual(self.shown("ActiveState"), "inactive")
        self.assertEqual(self.panel().set(190), 0)
        self.assertEqual(self.shown("ActiveState"), "active")
        wait_until(lambda: self.shown("StatusText").startswith("1 port, panel attached."))

    def test_enabled_service_is_there_with_its_socket_from_the_beginning_of_the_session(self):
        enabled = self.ask("enable", "--now", "vexil3d.service")
        self.assertEqual(enabled.returncode, 0, enabled.stderr)
        units_of_both = ("vexil3d.service", "vexil3d.socket")
        self.assertEqual(self.ask("is-active", *units_of_both).stdout, "active\nactive\n")
        self.assertEqual(self.ask("is-enabled", *units_of_both).stdout, "enabled\nenabled\n")

    def test_root_gets_no_driver(self):
        self.put_units(without=None)
        self.assertEqual(self.ask("daemon-reload").returncode, 0)
        self.ask("start", "vexil3d.socket", "vexil3d.service")
        self.assertEqual(self.shown("ConditionResult"), "no")
        self.assertEqual(self.shown("ActiveState"), "inactive")
        self.assertFalse(self.surroundings.control.exists())

    def test_killed_service_is_back_within_two_seconds(self):
        self.start()
        self.panel()
        self.ask("kill", "--signal=KILL", "vexil3d.service")
        wait_until(lambda: self.shown("NRestarts") == "1" and self.shown("ActiveState") == "active", 2.0)
        self.assertEqual(self.panel().set(190), 0)

    def test_service_that_hangs_is_ended_by_the_watchdog(self):
        folder = self.surroundings.home / ".config/systemd/user/vexil3d.service.d"
        folder.mkdir()
        (folder / "soon.conf").write_text("[Service]\nWatchdogSec=500ms\nTimeoutAbortSec=1\n")
        self.ask("daemon-reload")
        self.start()
        self.panel()
        self.ask("kill", "--signal=STOP", "vexil3d.service")
        wait_until(lambda: self.shown("NRestarts") == "1" and self.shown("ActiveState") == "active")
        self.assertEqual(self.panel().set(190), 0)

    def test_reload_reads_the_configuration(self):
        self.start()
        client = self.client()
        self.assertEqual([port["port"] for port in client.status()["ports"]], [11])
        self.surroundings.store({"OutputPorts": stored.mask(1, 2)})
        self.assertEqual(self.ask("reload", "vexil3d.service").returncode, 0)
        wait_until(lambda: [port["port"] for port in client.status()["ports"]] == [12, 13])
        wait_until(lambda: self.shown("ActiveState") == "active")

    def test_end_is_good(self):
        self.start()
        self.panel()
        self.assertEqual(self.ask("stop", "vexil3d.socket", "vexil3d.service").returncode, 0)
        self.assertEqual((self.shown("Result"), self.shown("ActiveState")), ("success", "inactive"))
        self.assertFalse(self.surroundings.control.exists())

    def test_service_is_confined_and_still_locks_its_memory(self):
        self.start()
        status = self.client().status()
        self.assertEqual(status["memory"], "locked")
        self.assertEqual(status["hosts"][0]["name"], os.uname().nodename)
        found = self.ask("show", "vexil3d.service", "-p", "SystemCallFilter", "-p", "NoNewPrivileges").stdout
        self.assertIn("NoNewPrivileges=yes", found)
        self.assertIn("sched_setscheduler", found)


class Units(unittest.TestCase):
    def test_units_are_sound(self):
        environment = dict(os.environ, XDG_RUNTIME_DIR="/tmp")
        command = ["systemd-analyze", "--user", "--man=no", "verify", str(units / "vexil3d.socket")]
        if not shutil.which(command[0]):
            self.skipTest("missing: systemd-analyze")
        service = (units / "vexil3d.service").read_text()
        folder = next(line for line in service.splitlines() if line.startswith("ExecStart=")).split("=")[1].rpartition("/")[0]
        done = subprocess.run(command, env=environment, capture_output=True, text=True, check=False)
        # The programs are not installed yet.
        complaints = [line for line in done.stderr.splitlines() if f"{folder}/vexil3" not in line]
        self.assertEqual(complaints, [])


if __name__ == "__main__":
    units = pathlib.Path(sys.argv.pop())
    vexil3ctl = sys.argv.pop()
    reason = obstacle()
    if reason:
        print(f"Skipped: {reason}")
        sys.exit(running_service.SKIPPED)
    running_service.main()
