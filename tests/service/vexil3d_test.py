#!/usr/bin/python3
"""vexil3d as it runs: its beginning and end, its configuration, and what it tells the service manager."""

import os
import plistlib
import signal
import socket
import stat
import struct
import subprocess
import time

import running_service
from running_service import ATTACH, RELOAD, UNIT, request, wait_until

stored = running_service.stored


class Beginning(running_service.ServiceTest):
    def test_folder_and_socket_are_the_users_alone(self):
        self.start(prefix=("sh", "-c", 'umask 0; exec "$@"', "sh"))
        self.assertEqual(stat.S_IMODE(self.surroundings.control.parent.stat().st_mode), 0o700)
        self.assertEqual(stat.S_IMODE(self.surroundings.control.stat().st_mode), 0o600)

    def test_status_tells_how_things_stand(self):
        self.start()
        status = self.client().status()
        self.assertEqual(status["midi"]["backend"], "none")
        self.assertFalse(status["midi"]["running"])
        self.assertEqual(status["names"][0], socket.gethostname())
        self.assertEqual(status["control"], str(self.surroundings.control))
        self.assertEqual([port["port"] for port in status["ports"]], [11])

    def test_second_service_says_so_and_the_first_goes_on(self):
        first = self.start()
        second = self.start(wait=False)
        self.assertEqual(second.process.wait(10), 1)
        self.assertEqual(second.log(), f"Another vexil3d (process {first.pid}) is serving {self.surroundings.control}.\n")
        self.assertEqual(self.panel().set(190), 0)

    def test_service_that_hangs_is_living_too(self):
        first = self.start()
        first.process.send_signal(signal.SIGSTOP)
        second = self.start(wait=False)
        self.assertEqual(second.process.wait(10), 1)
        first.process.send_signal(signal.SIGCONT)
        self.assertEqual(self.panel().set(190), 0)

    def test_two_that_start_together_are_one(self):
        for _ in range(10):
            self.surroundings.forget()
            both = [self.start(wait=False) for _ in range(2)]
            wait_until(lambda both=both: any(service.process.poll() is not None for service in both))
            self.surroundings.heard("READY=1")
            self.assertEqual(sorted(service.process.poll() or 0 for service in both), [0, 1])
            self.assertEqual(self.client().status()["attached"], False)
            for service in both:
                service.kill()

    def test_killed_service_leaves_its_place_to_the_next(self):
        for _ in range(3):
            service = self.start()
            self.panel()
            service.kill()
            self.assertTrue(self.surroundings.control.exists())
        self.start()
        self.assertEqual(self.panel().set(190), 0)

    def test_without_a_folder_for_running_services_it_says_so(self):
        service = self.start(environment={"XDG_RUNTIME_DIR": str(self.surroundings.folder / "none")}, wait=False)
        self.assertEqual(service.process.wait(10), 1)
        self.assertEqual(service.log(), f"Cannot make the folder {self.surroundings.folder}/none/vexil3: "
                                        "No such file or directory.\n")

    def test_log_carries_nothing_that_acts_on_a_terminal(self):
        folder = self.surroundings.folder / "none\x1b[2J\u009b\u202e"
        service = self.start(environment={"XDG_RUNTIME_DIR": str(folder)}, wait=False)
        self.assertEqual(service.process.wait(10), 1)
        self.assertEqual(service.log(), f"Cannot make the folder {self.surroundings.folder}/none?[2J??/vexil3: "
                                        "No such file or directory.\n")

    def test_without_standard_streams_it_serves_all_the_same(self):
        self.start(prefix=("sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh"))
        panel = self.panel()
        self.assertEqual(panel.set(190), 0)
        self.assertEqual((self.surroundings.control.parent / "vexil3d.lock").read_text().count("\n"), 1)

    def test_misuse_is_told(self):
        service = self.start(("--midi", "oss"), wait=False)
        self.assertEqual(service.process.wait(10), 2)
        self.assertEqual(service.log(), "vexil3d: --midi takes alsa, jack or none. See vexil3d --help.\n")
        service = self.start(("--\x1b[2J\u009b",), wait=False)
        self.assertEqual(service.process.wait(10), 2)
        self.assertEqual(service.log(), 'vexil3d: There is no option "--?[2J?". See vexil3d --help.\n')

    def test_help_and_version(self):
        service = self.start(("--help",), wait=False)
        self.assertEqual(service.process.wait(10), 0)
        self.assertIn("Usage: vexil3d [--midi alsa|jack|none] [--network on|off|lo|INTERFACE,...]\n", service.log())
        service = self.start(("--version",), wait=False)
        self.assertEqual(service.process.wait(10), 0)
        self.assertRegex(service.log(), r"^vexil3d \d+\.\d+\.\d+\n$")


class Activation(running_service.ServiceTest):
    """The service manager opens the socket and starts the service for whoever connects."""

    ACTIVATE = ("sh", "-c", 'LISTEN_FDS=1 LISTEN_PID=$$ exec "$@"', "sh")

    def activate(self, listening, **options):
        os.set_inheritable(listening.fileno(), True)

        def give():
            if listening.fileno() != 3:
                os.dup2(listening.fileno(), 3)
            os.set_inheritable(3, True)

        return self.start(prefix=self.ACTIVATE, preexec_fn=give, close_fds=False, **options)

    def listen(self, kind=socket.SOCK_SEQPACKET):
        self.surroundings.control.parent.mkdir(mode=0o700)
        listening = socket.socket(socket.AF_UNIX, kind)
        self.addCleanup(listening.close)
        listening.bind(str(self.surroundings.control))
        listening.listen()
        return listening

    def test_who_connected_before_the_start_is_served(self):
        listening = self.listen()
        client = self.client()
        client.send(request(7, ATTACH, UNIT))
        self.activate(listening)
        self.assertEqual(client.reply(), (7, 0, b""))
        self.assertEqual(client.status()["control"], str(self.surroundings.control))

    def test_socket_stays_at_the_end_and_serves_the_next(self):
        listening = self.listen()
        service = self.activate(listening)
        self.assertEqual(service.end(), 0)
        self.assertTrue(self.surroundings.control.exists())
        self.activate(listening)
        self.assertEqual(self.panel().set(190), 0)

    def test_service_started_by_hand_leaves_the_managers_socket_alone(self):
        self.listen()
        service = self.start(wait=False)
        self.assertEqual(service.process.wait(10), 1)
        self.assertEqual(service.log(), f"Another vexil3d is serving {self.surroundings.control}.\n")

    def test_socket_of_another_kind_is_refused(self):
        service = self.activate(self.listen(socket.SOCK_STREAM), wait=False)
        self.assertEqual(service.process.wait(10), 1)
        self.assertEqual(service.log(), "The service manager has opened no packet socket for the control channel.\n")


class Configuration(running_service.ServiceTest):
    def test_reload_takes_the_stored_configuration_up(self):
        self.surroundings.store({"OutputPorts": stored.mask(0, 9), "10 Out_CustomName": "Strings"})
        self.start()
        client = self.client()
        self.assertEqual(client.status()["ports"][1]["output"]["name"], "Strings")
        self.surroundings.store({"InputPorts": stored.mask(63), "OutputPorts": stored.mask()})
        self.assertEqual(client.ask(RELOAD), (0, b""))
        self.assertEqual([port["port"] for port in client.status()["ports"]], [88])

    def test_hang_up_reads_it_again(self):
        service = self.start()
        self.surroundings.store({"OutputPorts": stored.mask(1, 2)})
        service.process.send_signal(signal.SIGHUP)
        self.surroundings.heard("RELOADING=1")
        self.assertIn("STATUS=2 ports", self.surroundings.heard("READY=1"))
        self.assertEqual([port["port"] for port in self.client().status()["ports"]], [12, 13])

    def test_a_change_by_another_program_is_taken_up_by_itself(self):
        service = self.start()
        client = self.client()
        self.surroundings.store({"InputPorts": stored.mask(63), "OutputPorts": stored.mask()})
        wait_until(lambda: [port["port"] for port in client.status()["ports"]] == [88])
        self.assertIn("Configuration: 0 outputs, 1 input, 0 local pipes.\n", service.log())

    def test_the_file_that_a_link_leads_to_is_watched(self):
        target = self.surroundings.home / "kept"
        stored.path(self.surroundings.preferences).parent.mkdir(parents=True)
        stored.path(self.surroundings.preferences).symlink_to(target)
        self.start()
        client = self.client()
        target.write_bytes(plistlib.dumps({"InputPorts": stored.mask(63), "OutputPorts": stored.mask()}))
        wait_until(lambda: [port["port"] for port in client.status()["ports"]] == [88])

    def test_a_saved_configuration_is_never_written(self):
        self.surroundings.store({"MiscOptions": 15})
        before = stored.path(self.surroundings.preferences).stat()
        service = self.start()
        panel = self.panel()
        self.assertEqual([panel.set(option) for option in (190, 195, 196, 197)], [0] * 4)
        self.assertEqual(panel.set(191, struct.pack("<I", 77)), 0)
        self.assertEqual(service.end(), 0)
        after = stored.path(self.surroundings.preferences).stat()
        self.assertEqual((before.st_ino, before.st_mtime_ns), (after.st_ino, after.st_mtime_ns))

    def test_without_a_configuration_the_options_alone_are_stored(self):
        service = self.start()
        self.assertEqual(self.client().ask(RELOAD), (0, b""))
        self.assertEqual(service.end(), 0)
        self.assertEqual(stored.read(self.surroundings.preferences), {"MiscOptions": 7})

    def test_options_that_no_one_saved_are_completed(self):
        stored.store(self.surroundings.preferences, {"MiscOptions": 0})
        self.start()
        self.assertEqual(stored.read(self.surroundings.preferences), {"MiscOptions": 7})
        self.assertTrue(self.client().status()["options"]["showConnectors"])

    def test_damaged_configuration_gives_the_defaults_and_a_line(self):
        self.surroundings.store()
        stored.path(self.surroundings.preferences).write_bytes(b"<plist>broken")
        service = self.start()
        self.assertEqual([port["port"] for port in self.client().status()["ports"]], [11])
        wait_until(lambda: ".damaged-" in service.log())
        wait_until(lambda: stored.path(self.surroundings.preferences).exists())
        self.assertEqual(stored.read(self.surroundings.preferences), {"MiscOptions": 7})

    def test_a_configuration_that_is_being_written_is_waited_for(self):
        self.surroundings.store({"InputPorts": stored.mask(63), "OutputPorts": stored.mask()})
        service = self.start()
        client = self.client()
        path = stored.path(self.surroundings.preferences)
        for port in range(5):
            content = plistlib.dumps({"InputPorts": stored.mask(port), "OutputPorts": stored.mask()})
            start = time.monotonic()
            with path.open("r+b") as file:
                file.truncate(0)
                self.assertEqual(client.ask(RELOAD), (0, b""))
                before = client.status()["ports"]
                file.write(content)
            took = time.monotonic() - start
            wait_until(lambda port=port: [one["index"] for one in client.status()["ports"]] == [port])
            # On a machine that takes longer, the file may rightly be set aside.
            if took < 0.2:
                self.assertEqual([one["index"] for one in before], [port - 1 if port else 63])
                self.assertEqual(list(path.parent.glob("*.damaged-*")), [], service.log())

    def test_enable_logging_switches_the_lines(self):
        self.surroundings.store({"MiscOptions": 3})
        service = self.start()
        self.panel()
        self.assertEqual(service.log(), "")
        self.surroundings.store({"MiscOptions": 7})
        self.assertEqual(self.client().ask(RELOAD), (0, b""))
        self.assertIn("Configuration: 1 output, 0 inputs, 0 local pipes.\n", service.log())

    def test_quantization_lasts_until_the_next_reload(self):
        self.start()
        panel = self.panel()
        self.assertEqual(panel.set(191, struct.pack("<I", 77)), 0)
        self.assertEqual(panel.status()["options"]["sendGranularity"], 77)
        self.assertEqual(panel.set(190), 0)
        self.assertEqual(panel.status()["options"]["sendGranularity"], 2)

    def test_host_name_that_changes_changes_the_routes(self):
        if os.geteuid() != 0 or not os.path.exists("/usr/bin/unshare"):
            self.skipTest("needs root, to give the service a host name of its own")
        self.surroundings.store({"01 DstHost": "stage-left"})
        service = self.start(prefix=("unshare", "--uts", "sh", "-c", 'hostname stage-right; exec "$@"', "sh"))
        client = self.client()
        self.assertEqual(client.status()["ports"][0]["output"]["route"], "remote")
        subprocess.run(["nsenter", f"--target={service.pid}", "--uts", "hostname", "stage-left"], check=True)
        wait_until(lambda: client.status()["ports"][0]["output"]["route"] == "local")
        self.assertEqual(client.status()["names"], ["stage-left"])


class End(running_service.ServiceTest):
    def test_ends_well_and_removes_its_socket(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            service = self.start()
            panel = self.panel()
            self.assertEqual(service.end(number), 0, service.log())
            self.surroundings.heard("STOPPING=1")
            self.assertIsNone(panel.reply())
            self.assertFalse(self.surroundings.control.exists())

    def test_second_signal_changes_nothing(self):
        service = self.start()
        service.process.send_signal(signal.SIGTERM)
        service.process.send_signal(signal.SIGHUP)
        self.assertEqual(service.end(signal.SIGINT), 0)


class Manager(running_service.ServiceTest):
    def test_status_follows_the_panel(self):
        self.start()
        panel = self.panel()
        self.assertIn("1 port, panel attached.", self.surroundings.heard("STATUS="))
        panel.close()
        self.assertIn("1 port.", self.surroundings.heard("STATUS="))

    def test_watchdog_hears_that_it_is_alive(self):
        self.start(environment={"WATCHDOG_USEC": "200000"})
        begin = time.monotonic()
        for _ in range(10):
            self.surroundings.heard("WATCHDOG=1")
        self.assertGreater(time.monotonic() - begin, 0.8)

    def test_watchdog_does_not_hear_a_service_that_hangs(self):
        service = self.start(environment={"WATCHDOG_USEC": "200000"})
        service.process.send_signal(signal.SIGSTOP)
        time.sleep(0.1)
        self.surroundings.forget()
        with self.assertRaises(TimeoutError):
            self.surroundings.heard("WATCHDOG=1", 0.5)

    def rests(self, service):
        """Whether the service does not wake up for three seconds."""
        before = running_service.wake_ups(service.pid)
        time.sleep(3)
        return running_service.wake_ups(service.pid) == before

    def test_idle_it_never_wakes_up(self):
        self.surroundings.store(stored.defaults())
        service = self.start()
        self.panel()
        # Nor for whoever waits for a change of its status.
        watcher = self.client()
        error, number = watcher.ask(running_service.WATCH)
        self.assertEqual(error, 0)
        watcher.send(running_service.request(1, running_service.WATCH, int.from_bytes(number, "little")))
        # What its start has brought comes first, on a busy computer a while after it.
        wait_until(lambda: self.rests(service))


if __name__ == "__main__":
    running_service.main()
