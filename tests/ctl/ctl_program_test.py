"""vexil3ctl as a program, alone and with the real service: ctl_program_test.py VEXIL3CTL [VEXIL3D]."""
import json
import os
import pathlib
import pty
import re
import resource
import select
import signal
import socket
import struct
import subprocess
import sys
import termios
import threading
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


class Terminal:
    """vexil3ctl at a terminal: its standard streams are one."""

    def __init__(self, place, *arguments):
        self.ours, self.theirs = pty.openpty()
        place.test.addCleanup(os.close, self.ours)
        place.test.addCleanup(os.close, self.theirs)
        self.text = ""
        self.program = subprocess.Popen([place.vexil3ctl, *arguments], env=place.environment, cwd=place.root,
                                        stdin=self.theirs, stdout=self.theirs, stderr=self.theirs,
                                        start_new_session=True, preexec_fn=self.take_terminal)
        place.test.addCleanup(self.program.wait)
        place.test.addCleanup(self.program.kill)

    def take_terminal(self):
        """Ctrl-C in the terminal goes to the program."""
        os.close(os.open(os.ttyname(self.theirs), os.O_RDWR))

    def await_text(self, pattern):
        end = time.monotonic() + ctl_surroundings.PATIENCE
        while not re.search(pattern, self.text) and time.monotonic() < end:
            if select.select([self.ours], [], [], 0.1)[0]:
                self.text += os.read(self.ours, 4096).decode()
        return self.text

    def type(self, text):
        os.write(self.ours, text.encode())

    def shows_typing(self):
        return bool(termios.tcgetattr(self.theirs)[3] & termios.ECHO)


class AnsweringService:
    """A service that answers every request with the same text, and keeps the payloads."""

    def __init__(self, place, answer):
        self.payloads = []
        self.answer = answer
        place.socket.parent.mkdir(mode=0o700)
        self.listening = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.listening.bind(str(place.socket))
        self.listening.listen()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()
        place.test.addCleanup(self.stop)

    def run(self):
        while True:
            try:
                link = self.listening.accept()[0]
            except OSError:
                return
            with link:
                request = link.recv(1 << 17)
                self.payloads.append(request[16:])
                link.send(request[:4] + struct.pack("<II", 0, len(self.answer)) + self.answer)

    def stop(self):
        self.listening.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.listening.close()


class AtATerminal(unittest.TestCase):
    def setUp(self):
        self.place = ctl_surroundings.Surroundings(self, PROGRAMS[0])

    def test_a_secret_is_typed_twice_and_shown_to_nobody(self):
        service = AnsweringService(self.place, b'{"done": "The secret is set."}')
        terminal = Terminal(self.place, "network", "secret")
        terminal.await_text("Secret: ")
        self.assertFalse(terminal.shows_typing())
        terminal.type("a secret of ours\n")
        terminal.await_text("again: ")
        terminal.type("a secret of ours\n")
        self.assertIn("The secret is set.", terminal.await_text(r"is set\."))
        self.assertEqual(terminal.program.wait(), 0)
        self.assertNotIn("ours", terminal.text)
        self.assertTrue(terminal.shows_typing())
        self.assertEqual(service.payloads, [b"secret\0a secret of ours\0"])

    def test_an_interrupt_leaves_a_terminal_that_shows_what_is_typed(self):
        terminal = Terminal(self.place, "network", "secret")
        terminal.await_text("Secret: ")
        self.assertFalse(terminal.shows_typing())
        terminal.type("half a sec\x03")
        self.assertEqual(terminal.program.wait(), -signal.SIGINT)
        self.assertTrue(terminal.shows_typing())

    def test_a_secret_is_piped_in(self):
        service = AnsweringService(self.place, b'{"done": "The secret is set."}')
        done = self.place.ctl("network", "secret", input="a secret of ours\nmore\n")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(service.payloads, [b"secret\0a secret of ours\0"])

    def test_the_watch_says_that_there_is_no_service_and_ends_with_an_interrupt(self):
        terminal = Terminal(self.place, "status", "--watch")
        self.assertIn("\x1b[HThere is no status: no service is running at ", terminal.await_text(r"goes on\."))
        terminal.type("\x03")
        self.assertEqual(terminal.program.wait(), 0)

    def test_the_wait_ends_with_an_interrupt_as_programs_do(self):
        terminal = Terminal(self.place, "status", "--wait")
        # It has begun to wait when it has no connection to make any more: it is asleep.
        state = pathlib.Path(f"/proc/{terminal.program.pid}/stat")
        while state.read_text(encoding="ascii").split()[2] != "S":
            time.sleep(0.01)
        terminal.type("\x03")
        self.assertEqual(terminal.program.wait(), -signal.SIGINT)


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

    def test_the_wait_is_over_when_every_route_gets_through(self):
        self.settings.write_text(SETTINGS + "DstName=localhost\n", encoding="ascii")
        self.run_ctl("load", self.settings)
        self.assertEqual(self.run_ctl("status", "--wait"), "Every route gets through.\n")
        self.settings.write_text("[Port_00]\nDstPort=2\n", encoding="ascii")
        self.run_ctl("load", self.settings)
        done = self.place.ctl("status", "--wait", "1")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertEqual(done.stderr, "vexil3ctl: after 1 second not every route gets through:\n"
                                      "vexil3ctl: port 11 to localhost, port 13: Port 13 is not enabled as MIDI IN.\n")

    def test_the_wait_begins_before_the_service(self):
        self.run_ctl("load", self.settings)
        self.service.terminate()
        self.service.wait()
        waiting = subprocess.Popen([PROGRAMS[0], "status", "--wait"], env=self.place.environment,
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(waiting.wait)
        self.addCleanup(waiting.kill)
        self.place.start_service()
        self.assertEqual(waiting.communicate(timeout=60)[0], "Every route gets through.\n")
        self.assertEqual(waiting.returncode, 0)

    def test_the_watch_follows_the_service(self):
        watching = subprocess.Popen([PROGRAMS[0], "status", "--watch"], env=self.place.environment,
                                    stdout=subprocess.PIPE, text=True)
        self.addCleanup(watching.stdout.close)
        self.addCleanup(watching.wait)
        self.addCleanup(watching.kill)

        def await_line(beginning):
            for line in watching.stdout:
                if line.startswith(beginning):
                    return
            self.fail(f"no line began with {beginning!r}")

        await_line("Control panel  not attached")
        panel = self.place.attach()
        await_line("Control panel  attached")
        panel.close()
        await_line("Control panel  not attached")
        self.service.terminate()
        self.service.wait()
        await_line("There is no status: no service is running at ")
        self.place.start_service()
        await_line("Vexil III ")
        watching.send_signal(signal.SIGINT)
        self.assertEqual(watching.wait(), 0)

    def test_the_monitor_shows_what_is_played_and_how_a_panic_ends_it(self):
        self.run_ctl("load", self.settings)
        watching = subprocess.Popen([PROGRAMS[0], "monitor", "11", "12"], env=self.place.environment,
                                    stdout=subprocess.PIPE, text=True)
        self.addCleanup(watching.stdout.close)
        self.addCleanup(watching.wait)
        self.addCleanup(watching.kill)
        panel = self.place.attach()

        def set_option(option, payload):
            reply = self.place.exchange(panel, struct.pack("<IIII", 2, 2, option, len(payload)) + payload)
            self.assertEqual(reply, struct.pack("<III", 2, 0, 0))

        self.assertTrue(watching.stdout.readline().startswith("TIME "))
        set_option(192, bytes([0xC0, 0, 0, 1]) + b"localhost\0\0\0")
        set_option(193, struct.pack("<I", 0))
        set_option(0, struct.pack("<IQH", 1, 0, 3) + b"\x90\x3c\x40")
        played = r"\A\d\d:\d\d:\d\d\.\d{3} %s +1 note on C4 velocity 64 +90 3c 40\n\Z"
        self.assertRegex(watching.stdout.readline(), played % "11   test")
        self.assertRegex(watching.stdout.readline(), played % "12   in   Port 12")
        self.assertRegex(self.run_ctl("panic"), r"\AAll notes are off.*\n\Z")
        self.assertRegex(watching.stdout.readline(), r" 12   in   Port 12 +1 note off C4 velocity 64 +80 3c 40\n\Z")
        watching.send_signal(signal.SIGINT)
        self.assertEqual(watching.wait(), 0)

    def test_network_commands_reach_the_service(self):
        done = self.place.ctl("network", "forget", "a computer of which nobody knows")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, r"\Avexil3ctl: [^\n]*\.\n\Z")

    def test_a_service_that_was_stopped_hangs(self):
        self.service.send_signal(signal.SIGSTOP)
        self.addCleanup(self.service.send_signal, signal.SIGCONT)
        done = self.place.ctl("reload")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertEqual(done.stderr, "vexil3ctl: the service does not answer\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
