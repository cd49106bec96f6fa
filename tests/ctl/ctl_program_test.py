"""vexil3ctl as a program, alone and with the real service: ctl_program_test.py VEXIL3CTL [VEXIL3D]."""
import json
import os
import resource
import signal
import socket
import struct
import sys
import time
import unittest

import ctl_surroundings

PROGRAMS = [os.path.abspath(path) for path in sys.argv[1:]]
SETTINGS = "[Port_00]\nProperties=Input,Output\nOutName=Stage piano\nDstName=localhost\nDstPort=1\n" \
           "[Port_01]\nProperties=Input\n"


def small_files():
    """Writes beyond the first kilobyte of a file fail."""
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (1024, 1024))


class Alone(unittest.TestCase):
    def setUp(self):
        self.place = ctl_surroundings.Surroundings(self, PROGRAMS[0])
        self.settings = self.place.root / "mine.vexil3"
        self.settings.write_text(SETTINGS, encoding="utf-8")

    def assert_failed(self, done, status, text):
        self.assertEqual(done.returncode, status, done.stderr)
        self.assertFalse(done.stdout)
        self.assertIn(text, done.stderr)
        for line in done.stderr.splitlines():
            self.assertTrue(line.startswith("vexil3ctl: "), line)

    def test_exit_statuses(self):
        self.assertEqual(self.place.ctl("--help").returncode, 0)
        self.assertEqual(self.place.ctl("load", self.settings).returncode, 0)
        self.assert_failed(self.place.ctl("load", "none.vexil3"), 1, "No such file or directory")
        self.assert_failed(self.place.ctl("lod"), 2, "there is no command 'lod'")
        self.assert_failed(self.place.ctl("status"), 3, "no service is running at ")

    def test_an_output_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            done = self.place.ctl("--help", stdout=full)
        self.assert_failed(done, 1, "standard output: No space left on device")

    def test_closed_streams_are_given_to_no_file(self):
        done = self.place.ctl("save", "saved.vexil3", stdout=None, preexec_fn=lambda: (os.close(0), os.close(1)))
        self.assertEqual(done.returncode, 1)
        self.assertIn("standard output: ", done.stderr)
        saved = (self.place.root / "saved.vexil3").read_text(encoding="ascii")
        self.assertTrue(saved.startswith("[Options]\n"))
        self.assertNotIn("saved in", saved)

    def test_a_file_that_cannot_be_written_whole_is_a_failure_and_stays(self):
        before = self.settings.read_bytes()
        done = self.place.ctl("save", self.settings, preexec_fn=small_files)
        self.assert_failed(done, 1, f"{self.settings} cannot be written")
        self.assertIn("File too large", done.stderr)
        self.assertEqual(self.settings.read_bytes(), before)

    def test_a_store_that_cannot_be_written_whole_is_a_failure_and_stays(self):
        self.assertEqual(self.place.ctl("load", self.settings).returncode, 0)
        stored = next(self.place.preferences.glob("*.plist"))
        before = stored.read_bytes()
        self.settings.write_text("[Port_00]\nOutName=Organ\n", encoding="ascii")
        done = self.place.ctl("load", self.settings, preexec_fn=small_files)
        self.assert_failed(done, 1, "the configuration cannot be stored")
        self.assertIn("File too large", done.stderr)
        self.assertEqual(stored.read_bytes(), before)

    def test_escape_sequences_of_an_argument_do_not_reach_the_terminal(self):
        done = self.place.ctl("load", "\x1b[2J\u009b.vexil3")
        self.assert_failed(done, 1, "?[2J?.vexil3 cannot be opened")

    def test_a_service_that_hangs_costs_seconds_and_says_so(self):
        self.place.socket.parent.mkdir(mode=0o700)
        hung = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.addCleanup(hung.close)
        hung.bind(str(self.place.socket))
        hung.listen()
        started = time.monotonic()
        self.assert_failed(self.place.ctl("status"), 1, "the service does not answer")
        self.assertLess(time.monotonic() - started, 10)


class WithService(unittest.TestCase):
    def setUp(self):
        if len(PROGRAMS) < 2:
            self.skipTest("there is no service in this build")
        self.place = ctl_surroundings.Surroundings(self, *PROGRAMS)
        self.settings = self.place.root / "mine.vexil3"
        self.settings.write_text(SETTINGS, encoding="utf-8")
        self.service = self.place.start_service()

    def run_ctl(self, *arguments):
        done = self.place.ctl(*arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        return done.stdout

    def ports(self):
        return {port["port"]: port for port in json.loads(self.run_ctl("status", "--json"))["ports"]}

    def test_loaded_settings_are_taken_up(self):
        self.assertIn("The service has taken them up.\n", self.run_ctl("load", self.settings))
        self.assertEqual(sorted(self.ports()), [11, 12])
        text = self.run_ctl("status")
        self.assertRegex(text, r"(?m)^11   out  Stage piano +0 to localhost, port 12 +0 +0$")
        self.assertRegex(text, r"(?m)^     in   Port 11 +0 from any +0 +0$")
        self.assertRegex(text, r"(?m)^12   in   Port 12 +0 from any +0 +0$")
        self.assertLessEqual(max(map(len, text.splitlines())), 80)

    def test_reload_takes_up_what_was_stored_meanwhile(self):
        self.run_ctl("load", self.settings)
        stored = next(self.place.preferences.glob("*.plist"))
        text = stored.read_text(encoding="utf-8")
        self.assertIn("Stage piano", text)
        stored.write_text(text.replace("Stage piano", "Concert grand"), encoding="utf-8")
        self.assertEqual(self.ports()[11]["output"]["name"], "Stage piano")
        self.run_ctl("reload")
        self.assertEqual(self.ports()[11]["output"]["name"], "Concert grand")

    def test_the_panel_keeps_the_service(self):
        panel = self.place.attach()
        self.assertIn("Control panel  attached\n", self.run_ctl("status"))
        self.assertIn("A control panel is open: ", self.run_ctl("load", self.settings))
        self.run_ctl("reload")
        # The panel's attachment serves on: it sets the quantization time.
        request = struct.pack("<IIIII", 9, 2, 191, 4, 25)
        self.assertEqual(self.place.exchange(panel, request), struct.pack("<III", 9, 0, 0))
        self.assertIn("Quantization   2.5 ms\n", self.run_ctl("status"))

    def test_hosts_begin_with_this_computer(self):
        hosts = json.loads(self.run_ctl("hosts", "--json"))
        self.assertEqual(hosts, json.loads(self.run_ctl("status", "--json"))["hosts"])
        self.assertRegex(self.run_ctl("hosts"), rf"(?m)^{hosts[0]['name']} ")

    def test_every_port_fits_into_the_answer(self):
        lines = []
        for port in range(64):
            lines.append(f"[Port_{port:02d}]\nProperties=Input,Output\nOutName=Sound module {port:02d}\n"
                         f"InpName=Keyboard {port:02d}\nDstName=localhost\n")
        self.settings.write_text("".join(lines), encoding="ascii")
        self.run_ctl("load", self.settings)
        self.assertEqual(len(self.ports()), 64)

    def test_a_service_that_was_killed_is_none(self):
        self.service.kill()
        self.service.wait()
        self.assertTrue(self.place.socket.exists())
        done = self.place.ctl("status")
        self.assertEqual((done.returncode, done.stdout), (3, ""))
        self.assertIn("it takes them up when it starts", self.run_ctl("load", self.settings))

    def test_a_service_that_was_stopped_hangs(self):
        self.service.send_signal(signal.SIGSTOP)
        self.addCleanup(self.service.send_signal, signal.SIGCONT)
        done = self.place.ctl("reload")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertEqual(done.stderr, "vexil3ctl: the service does not answer\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
