"""The restart request on a private bus with a stand-in for logind. Nothing here can reach the real one.

LogindRestarterTest.py PROGRAM: PROGRAM is RestartCaller, which prints the results of the three steps.
"""
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = sys.argv.pop()
CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>system</type><listen>unix:path={socket}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
{refusal}</policy></busconfig>"""


class LogindRestarter(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vexil-bus-")
        self.addCleanup(temporary.cleanup)
        self.socket = os.path.join(temporary.name, "bus")
        self.log = os.path.join(temporary.name, "log")
        self.environment = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS="unix:path=" + self.socket)

    def start(self, command):
        process = subprocess.Popen(command, env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def start_bus(self, refusal=""):
        path = self.log + ".conf"
        with open(path, "w", encoding="utf-8") as file:
            file.write(CONFIGURATION.format(socket=self.socket, refusal=refusal))
        bus = self.start(["dbus-daemon", "--nofork", "--nopidfile", "--nosyslog", "--config-file=" + path])
        self.wait_for(lambda: os.path.exists(self.socket))
        return bus

    def start_logind(self):
        self.start(["/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind", "-l", self.log])
        self.wait_for(lambda: self.ask("CanReboot") == 0)

    def ask(self, method, *arguments):
        return subprocess.run(["dbus-send", "--bus=unix:path=" + self.socket, "--print-reply",
                               "--dest=org.freedesktop.login1", "/org/freedesktop/login1",
                               "org.freedesktop.login1.Manager." + method, *arguments], env=self.environment,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode

    def wait_for(self, condition):
        deadline = time.monotonic() + 20
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)

    def run_caller(self, *arguments):
        return subprocess.run([PROGRAM, *arguments], env=self.environment, stdout=subprocess.PIPE, text=True,
                              timeout=20, check=True).stdout.split()

    def calls(self):
        with open(self.log, encoding="utf-8") as file:
            return [line.split(" ", 1)[1].strip() for line in file if " Reboot" in line]

    def test_reboot_is_asked_for_once_without_a_prompt(self):
        self.start_bus()
        self.start_logind()
        self.assertEqual(self.run_caller(), ["0", "0", "0"])
        self.wait_for(self.calls)
        self.assertEqual(self.calls(), ["Reboot False"])

    def test_without_a_bus_there_is_no_address(self):
        results = self.run_caller()
        self.assertGreater(int(results[0]), 0)
        self.assertEqual(results[1:], ["107", "22"])   # ENOTCONN, EINVAL

    def test_a_bus_that_says_nothing_is_given_up(self):
        with socket.socket(socket.AF_UNIX) as bus:
            bus.bind(self.socket)
            bus.listen()
            results = self.run_caller()
        self.assertEqual(results, ["110", "107", "22"])   # ETIMEDOUT, ENOTCONN, EINVAL

    def test_another_event_is_refused(self):
        self.start_bus()
        self.start_logind()
        self.assertEqual(self.run_caller("1936220516"), ["0", "22", "22"])
        self.assertEqual(self.calls(), [])

    def test_a_refusal_by_the_bus_is_not_awaited(self):
        self.start_bus('<deny send_destination="org.freedesktop.login1" '
                       'send_interface="org.freedesktop.login1.Manager" send_member="Reboot"/>')
        self.start_logind()
        self.assertEqual(self.run_caller(), ["0", "0", "0"])
        self.assertNotEqual(self.ask("Reboot", "boolean:false"), 0, "the bus does refuse")
        self.assertEqual(self.calls(), [])

    def test_without_logind_the_request_is_sent_all_the_same(self):
        self.start_bus()
        self.assertEqual(self.run_caller(), ["0", "0", "0"])


if __name__ == "__main__":
    if not shutil.which("dbus-daemon") or not shutil.which("dbus-send") or subprocess.run(
            ["/usr/bin/python3", "-c", "import dbusmock"], stderr=subprocess.DEVNULL, check=False).returncode:
        print("dbus-daemon or dbusmock is missing")
        sys.exit(77)
    unittest.main()
