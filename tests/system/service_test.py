#!/usr/bin/python3
"""Usage: service_test.py VEXIL3 VEXIL3D VEXIL3CTL MUSIC_PROGRAM

Everything together: somebody sets ports up in the real window, the real service gives them to music programs on JACK, which hear
what is played and what the test button plays. Each of them is killed in turn, and everything is there again soon.
"""

import json
import subprocess
import sys

import music_world
import panel_test
import stored_configuration as stored
from private_desktop import SKIPPED, wait_until
from stopwatch import Stopwatch

OUTPUT, INPUT = "To the synth", "From the keys"
TEST_BUTTON = "MIDI OUT Play test chord"
FIRST_CHORDS = ((40, 52, 55, 62, 67, 71), (45, 55, 61, 65, 70), (51, 55, 61, 65, 72))
SOON = 2.0  # seconds until everything is back, on a computer that has a processor for it

vexil3d = vexil3ctl = music_program = None


def written_at(name):
    return f"Vexil III:{name} out"


def read_at(name):
    return f"Vexil III:{name} in"


def note_on(note, velocity=100):
    return bytes((0x90, note, velocity))


def note_off(note):
    """As the service releases a note."""
    return bytes((0x80, note, 64))


CLOCK, STOP = b"\xF8", b"\xFC"


def chord(number, velocity):
    return [note_on(note, velocity) for note in FIRST_CHORDS[number]]


class ServiceTest(panel_test.PanelTest):
    def setUp(self):
        super().setUp()
        self.server = music_world.JackServer(self.desktop.environment)
        self.addCleanup(self.server.end)
        self.server.start()
        self.service = None

    def start_service(self):
        """Starts the service; returns a stopwatch that ran before."""
        begin = Stopwatch()
        self.service = music_world.RunningService(vexil3d, self.server.environment, self.desktop.folder / "vexil3d.log")
        self.addCleanup(self.service.end)
        return begin

    def program(self, name):
        program = music_world.MusicProgram(music_program, self.server.environment, name)
        self.addCleanup(program.end)
        program.ask("listen")
        return program

    def store_ports(self):
        """Port 11 sends to port 12."""
        stored.store(self.desktop.preferences, stored.defaults() | {
            "InputPorts": stored.mask(1), "OutputPorts": stored.mask(0), "01 DstHost": "localhost",
            "01 PortFlags": stored.entry(0xC0, 0, 1), "01 Out_CustomName": OUTPUT, "02 In_CustomName": INPUT})

    def wait_ports(self, program, written, read, seconds=panel_test.PATIENCE):
        wanted = [written_at(name) for name in written], [read_at(name) for name in read]
        wait_until(lambda: program.ports() == wanted, seconds, f"the ports {wanted}")

    def connect(self, keys, synth):
        """Once the ports are there, lets the one program play to the other through the service."""
        self.wait_ports(synth, [OUTPUT], [INPUT])
        self.assertTrue(keys.play_to(written_at(OUTPUT)))
        self.assertTrue(synth.read_from(read_at(INPUT)))
        self.wait_carried(keys, synth)

    def wait_carried(self, keys, synth):
        """Waits until what the one program writes is heard by the other. JACK says that a connection is made before it carries
        anything, and what is written meanwhile is lost."""
        def is_heard():
            keys.write(CLOCK)
            return CLOCK in synth.heard()
        wait_until(is_heard, what="a clock's way through the service")
        keys.write(STOP)
        synth.wait(lambda: STOP in synth.heard(), "the last of the clocks")
        synth.forget(CLOCK, STOP)

    def counted(self, port, side):
        """Messages and bytes of one side of a port."""
        counts = next(one for one in self.service.status()["ports"] if one["port"] == port)[side]
        return counts["messages"], counts["bytes"]

    def assert_counted(self, port, side, before, messages, size):
        """What came to the counts of one side of a port since they were `before`."""
        now = self.counted(port, side)
        self.assertEqual((now[0] - before[0], now[1] - before[1]), (messages, size))

    def assert_plays(self, keys, synth, note=60):
        synth.forget()
        keys.write(note_on(note), note_off(note))
        synth.wait_heard(note_on(note), note_off(note))
        synth.forget()

    def hold(self, panel):
        """Presses the test button. Whatever happens, the mouse is let go at the end."""
        panel.activate()
        self.addCleanup(panel.let_go)
        panel.hold(TEST_BUTTON)

    def assert_chord(self, panel, synth, number):
        """Holds the test button until the chord sounds, and lets it go."""
        self.hold(panel)
        synth.wait_heard(*chord(number, 100))
        panel.let_go()
        synth.wait_heard(*chord(number, 100), *chord(number, 0))
        synth.forget()

    def start_all(self):
        """Ports 11 and 12 set up, a panel, and two connected programs."""
        self.store_ports()
        self.start_service()
        panel = self.start()
        keys, synth = self.program("keys"), self.program("synth")
        self.connect(keys, synth)
        return panel, keys, synth

    def assert_soon(self, begin, what):
        print(f"{what}: {begin.elapsed():.3f} s", flush=True)
        self.assertLess(begin.free(), SOON, f"{what} after {begin.elapsed():.3f} s")

    def ctl(self, *arguments, status=0):
        done = subprocess.run([vexil3ctl, *arguments], env=self.server.environment, capture_output=True, text=True,
                              check=False, timeout=30)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout


class SetUp(ServiceTest):
    def test_ports_that_are_set_up_in_the_window_carry_what_is_played(self):
        self.start_service()
        panel = self.start()
        keys, synth = self.program("keys"), self.program("synth")
        self.wait_ports(synth, ["Port 11"], [])

        panel.enter("MIDI OUT Port display name", OUTPUT)
        panel.enter("MIDI OUT Target computer name", "localhost")
        panel.step("MIDI OUT Target port")
        panel.select_port("Port 12")
        panel.toggle("MIDI IN")
        panel.enter("MIDI IN Port display name", INPUT)
        self.wait_ports(synth, ["Port 11"], [])  # nothing before Apply
        self.apply(panel)

        self.connect(keys, synth)
        system_exclusive = b"\xF0\x7D" + bytes(range(128)) * 20 + b"\xF7"
        messages = [note_on(60), b"\xF8", b"\xB3\x07\x45", system_exclusive, note_off(60), b"\xC5\x11"]
        before = self.counted(11, "output")
        keys.write(*messages)
        synth.wait_heard(*messages)
        self.assert_counted(11, "output", before, 6, 12 + len(system_exclusive))
        # JACK tells the service of a connection in its own time.
        wait_until(lambda: self.service.status()["ports"][0]["output"]["connections"] == 1, what="the connection in the status")
        self.assert_quits(panel)

    def test_chord_sounds_as_long_as_the_test_button_is_held(self):
        panel, _, synth = self.start_all()
        self.assertTrue(self.service.status()["attached"])
        for number in range(len(FIRST_CHORDS)):
            self.assert_chord(panel, synth, number)
        self.assertEqual(synth.sounding(), "")
        self.assert_quits(panel)
        wait_until(lambda: not self.service.status()["attached"], what="the end of the attachment")

    def test_applied_change_leaves_the_connections_of_other_ports(self):
        panel, keys, synth = self.start_all()
        keys.write(note_on(60))
        synth.wait_heard(note_on(60))
        panel.select_port("Port 13")
        panel.toggle("MIDI IN")
        panel.toggle("MIDI OUT")
        self.apply(panel)
        self.wait_ports(synth, [OUTPUT, "Port 13"], [INPUT, "Port 13"])
        keys.write(note_off(60))
        synth.wait_heard(note_on(60), note_off(60))  # neither released nor lost
        self.assert_quits(panel)

    def test_note_is_released_when_its_port_gets_another_target(self):
        panel, keys, synth = self.start_all()
        keys.write(note_on(60), b"\xB0\x40\x7F")
        synth.wait_heard(note_on(60), b"\xB0\x40\x7F")
        panel.step("MIDI OUT Target port")
        self.apply(panel)
        synth.wait_heard(note_on(60), b"\xB0\x40\x7F", note_off(60), b"\xB0\x40\x00")
        self.assert_quits(panel)


class Options(ServiceTest):
    def test_quantization_follows_the_slider_and_the_stored_value_comes_back_with_the_next_reload(self):
        self.store_ports()
        self.start_service()
        panel = self.start()
        panel.step("Send Quantization Time")
        wait_until(lambda: self.service.status()["options"]["sendGranularity"] == 3, what="the new quantization")
        self.ctl("reload")
        self.assertEqual(self.service.status()["options"]["sendGranularity"], 2)
        self.apply(panel)
        wait_until(lambda: self.service.status()["options"]["sendGranularity"] == 3, what="the applied quantization")
        self.assert_quits(panel)

    def test_quantization_time_and_send_immediately_lose_nothing(self):
        self.store_ports()
        self.start_service()
        keys, synth = self.program("keys"), self.program("synth")
        self.connect(keys, synth)
        panel = self.start()
        panel.set_value("Send Quantization Time", 10)
        wait_until(lambda: self.service.status()["options"]["sendGranularity"] == 100, what="10 ms")
        self.assert_plays(keys, synth)
        panel.toggle("MIDI OUT Send Immediately")
        self.apply(panel)
        self.assert_plays(keys, synth)
        self.assertEqual(stored.read(self.desktop.preferences)["SendGranularity"], 100)
        self.assert_quits(panel)

    def test_without_show_connectors_the_ports_are_not_listed_and_with_it_they_are_back(self):
        panel, keys, synth = self.start_all()
        panel.toggle("Show Connectors")
        self.apply(panel)
        self.wait_ports(synth, [], [])
        output = self.service.status()["ports"][0]["output"]
        self.assertEqual(output["problem"], "Connectors are not shown, and JACK cannot hide a port.")
        panel.toggle("Show Connectors")
        self.apply(panel)
        self.connect(keys, synth)
        self.assert_plays(keys, synth)
        self.assert_quits(panel)


class Death(ServiceTest):
    def test_of_a_music_program(self):
        panel, keys, synth = self.start_all()
        keys.write(note_on(60), b"\xE0\x00\x60", b"\xB0\x01\x20")
        synth.wait_heard(note_on(60), b"\xE0\x00\x60", b"\xB0\x01\x20")
        synth.forget()
        begin = Stopwatch()
        keys.kill()
        synth.wait(lambda: synth.kept and len(synth.heard()) == 3, "the releases")
        self.assert_soon(begin, "Released after the death of a music program")
        self.assertEqual(sorted(synth.heard()), [note_off(60), b"\xB0\x01\x00", b"\xE0\x00\x40"])
        self.assertEqual(synth.sounding(), "")

        keys = self.program("keys")
        begin = Stopwatch()
        self.connect(keys, synth)
        self.assert_plays(keys, synth)
        self.assert_soon(begin, "A new program plays")
        self.assert_quits(panel)

    def test_of_the_panel(self):
        panel, keys, synth = self.start_all()
        self.hold(panel)
        synth.wait_heard(*chord(0, 100))
        synth.forget()
        begin = Stopwatch()
        panel.process.kill()
        synth.wait_heard(*(note_off(note) for note in FIRST_CHORDS[0]))
        self.assert_soon(begin, "Released after the death of the panel")
        panel.process.wait()
        synth.forget()
        panel.let_go()
        self.assert_plays(keys, synth)

        panel = self.start()
        begin = Stopwatch()
        wait_until(lambda: self.service.status()["attached"], what="the new panel's attachment")
        self.assert_chord(panel, synth, 0)
        self.assert_soon(begin, "A new panel plays")
        self.assert_quits(panel)

    def test_of_the_service(self):
        panel, keys, synth = self.start_all()
        self.assert_chord(panel, synth, 0)
        keys.write(note_on(60))
        synth.wait_heard(note_on(60))
        self.service.kill()
        # Nobody is left to release it; the MIDI system tells the reader that the port has gone.
        wait_until(lambda: synth.ask("report")["readers"][0]["connections"] == 0, what="the end of the connection")

        synth.forget()
        begin = self.start_service()
        self.connect(keys, synth)
        self.assert_soon(begin, "Ports after the return of the service")
        # What the one that was killed has left sounding ends: the last word of that is All Notes Off on channel 16.
        synth.wait(lambda: b"\xBF\x7B\x00" in synth.heard(), "the end of what sounded")
        self.assert_plays(keys, synth)
        self.assert_chord(panel, synth, 1)
        self.assert_soon(begin, "Chord after the return of the service")
        self.assert_quits(panel)

    def test_of_the_jack_server(self):
        panel, keys, synth = self.start_all()
        keys.write(note_on(60), b"\xB0\x40\x7F")
        synth.wait_heard(note_on(60), b"\xB0\x40\x7F")
        self.server.kill()
        for program in (keys, synth):
            program.wait(lambda program=program: "shutdown" in program.events, "the end of JACK")
            program.end()
        wait_until(lambda: not self.service.status()["midi"]["running"], what="the service's word on it")
        problem = self.service.status()["ports"][0]["output"]["problem"]
        self.assertIn("JACK", problem)
        self.assertTrue(panel.is_enabled(TEST_BUTTON))

        self.server.start()
        begin = Stopwatch()
        keys, synth = self.program("keys"), self.program("synth")
        self.connect(keys, synth)
        self.assert_soon(begin, "Ports after the return of JACK")
        self.assertEqual(synth.heard(), [])  # nothing of before comes late
        self.assert_plays(keys, synth)
        self.assert_chord(panel, synth, 0)
        self.assertEqual(synth.sounding(), "")
        self.assert_quits(panel)


class CommandLine(ServiceTest):
    def test_what_is_saved_changed_and_loaded_is_there_at_once_and_the_panel_shows_what_it_had_loaded(self):
        panel, keys, synth = self.start_all()
        settings = self.desktop.folder / "stage.vexil3"
        self.ctl("save", str(settings))
        text = settings.read_text()
        self.assertIn(f"OutName={OUTPUT}\n", text)
        settings.write_text(text.replace(f"OutName={OUTPUT}", "OutName=Lead"))
        self.ctl("load", str(settings))
        self.wait_ports(synth, ["Lead"], [INPUT])
        self.assert_plays(keys, synth)  # the connection stayed
        self.assertEqual(panel.text("MIDI OUT Port display name"), OUTPUT)
        self.assertEqual(stored.read(self.desktop.preferences)["01 Out_CustomName"], "Lead")
        self.assert_quits(panel)

    def test_reload_takes_up_what_another_program_stored(self):
        self.store_ports()
        self.start_service()
        synth = self.program("synth")
        self.wait_ports(synth, [OUTPUT], [INPUT])
        stored.store(self.desktop.preferences, stored.defaults() | {"LocalPipes": stored.mask(7)})
        self.ctl("reload")
        self.wait_ports(synth, ["Port 11", "Port 18"], ["Port 18"])

    def test_status_tells_what_goes_where_and_how_much(self):
        _, keys, synth = self.start_all()
        written, read = self.counted(11, "output"), self.counted(12, "input")
        self.assert_plays(keys, synth)
        text = self.ctl("status")
        # The table folds what is too long for its column.
        for word in (written_at(OUTPUT).removesuffix(" out"), read_at(INPUT).removesuffix(" in"), "JACK, running",
                     "to localhost, port 12"):
            self.assertIn(word, text)
        status = json.loads(self.ctl("status", "--json"))
        ports = {port["port"]: port for port in status["ports"]}
        self.assert_counted(11, "output", written, 2, 6)
        self.assert_counted(12, "input", read, 2, 6)
        self.assertEqual(ports[11]["output"]["target"], {"computer": "localhost", "port": 12})
        self.assertEqual((ports[11]["output"]["connections"], ports[12]["input"]["connections"]), (1, 1))
        self.assertTrue(ports[11]["test"]["open"])

    def test_without_a_service_status_says_so_by_its_exit_status(self):
        self.assertEqual(self.ctl("status", status=3), "")


class FirstStarts(ServiceTest):
    """On a computer where nothing was ever stored, in any order, the boxes stay ticked and the ports stay there."""

    OPTIONS = ("Show Connectors", "Launch Monitor", "Enable Logging")

    def look_and_end(self, panel):
        self.assertEqual([panel.is_checked(option) for option in self.OPTIONS], [True] * 3)
        self.assert_quits(panel)

    def apply_a_name(self, synth):
        """The second start of the panel: an edit and an Apply; the ports are there under the new name."""
        panel = self.start()
        self.assertEqual([panel.is_checked(option) for option in self.OPTIONS], [True] * 3)
        self.assertFalse(panel.is_checked("Use Wireless"))
        panel.enter("MIDI OUT Port display name", OUTPUT)
        self.apply(panel)
        self.wait_ports(synth, [OUTPUT], [])
        self.assert_quits(panel)
        self.assertEqual(self.stored()["MiscOptions"], 7)
        self.assertEqual(self.service.status()["ports"][0]["output"]["problem"], "")

    def test_with_a_driver_that_runs_already(self):
        self.start_service()
        synth = self.program("synth")
        self.wait_ports(synth, ["Port 11"], [])
        self.look_and_end(self.start())
        self.apply_a_name(synth)

    def test_with_a_driver_that_is_started_anew_between_the_two(self):
        self.start_service()
        self.look_and_end(self.start())
        self.service.end()
        self.start_service()
        synth = self.program("synth")
        self.wait_ports(synth, ["Port 11"], [])
        self.apply_a_name(synth)

    def test_with_a_panel_that_comes_first(self):
        panel = self.start()
        self.assertEqual(panel.text("MIDI OUT Port display name"), "")
        self.assertEqual(self.stored(), {"MiscOptions": 0})
        self.start_service()
        synth = self.program("synth")
        self.wait_ports(synth, ["Port 11"], [])
        self.look_and_end(panel)
        self.apply_a_name(synth)

    def test_a_panel_that_came_first_is_heard_without_a_word(self):
        panel = self.start()
        self.start_service()
        synth = self.program("synth")
        self.wait_ports(synth, ["Port 11"], [])
        panel.enter("MIDI OUT Port display name", OUTPUT)
        self.apply(panel)
        self.wait_ports(synth, [OUTPUT], [])
        self.assert_quits(panel)

    def test_hidden_ports_are_said_to_be_hidden(self):
        stored.store(self.desktop.preferences, stored.defaults() | {"MiscOptions": 6})
        self.start_service()
        wait_until(lambda: "! " in self.ctl("status"), what="a line about the hidden port")


def main():
    global vexil3d, vexil3ctl, music_program
    music_program, vexil3ctl, vexil3d = (sys.argv.pop(2 + index) for index in (2, 1, 0))
    reason = music_world.obstacle()
    if reason:
        print(f"Skipped: {reason}")
        sys.exit(SKIPPED)
    panel_test.main()


if __name__ == "__main__":
    main()
