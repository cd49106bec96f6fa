#!/usr/bin/python3
"""vexil3d as it runs: its channel with good and bad clients, its beginning and end, and what it tells the service manager."""

import errno
import os
import random
import resource
import signal
import socket
import stat
import struct
import subprocess
import time

import running_service
from running_service import (ATTACH, GET, LONGEST_DATA, RELOAD, SET, STATUS, UNIT, Client, packet_list, request,
                             test_record, wait_until)

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

    def test_without_standard_streams_it_serves_all_the_same(self):
        self.start(prefix=("sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh"))
        panel = self.panel()
        self.assertEqual(panel.set(190), 0)
        self.assertEqual((self.surroundings.control.parent / "vexil3d.lock").read_text().count("\n"), 1)

    def test_misuse_is_told(self):
        service = self.start(("--midi", "oss"), wait=False)
        self.assertEqual(service.process.wait(10), 2)
        self.assertEqual(service.log(), "vexil3d: --midi takes alsa, jack or none. See vexil3d --help.\n")

    def test_help_and_version(self):
        service = self.start(("--help",), wait=False)
        self.assertEqual(service.process.wait(10), 0)
        self.assertIn("Usage: vexil3d [--midi alsa|jack|none]\n", service.log())
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


class Channel(running_service.ServiceTest):
    def setUp(self):
        super().setUp()
        self.service = self.start()

    def assert_served(self):
        self.assertIsNone(self.service.process.poll(), self.service.log())
        self.assertEqual(self.client().ask(RELOAD), (0, b""))

    def test_one_panel_at_a_time(self):
        panel = self.panel()
        second = self.client()
        self.assertEqual(second.attach(), errno.EBUSY)
        self.assertEqual(panel.attach(), errno.EISCONN)
        self.assertTrue(second.status()["attached"])

    def test_attaches_again_at_once(self):
        for _ in range(200):
            panel = Client(self.surroundings.control)
            self.assertEqual(panel.attach(), 0)
            panel.close()

    def test_panel_that_is_killed_lets_go_of_all(self):
        code = ("import socket,sys,time; s=socket.socket(socket.AF_UNIX,socket.SOCK_SEQPACKET); s.connect(sys.argv[1])\n"
                "for r in sys.argv[2:]: s.send(bytes.fromhex(r)); s.recv(99)\n"
                "print(flush=True); time.sleep(60)")
        requests = [request(1, ATTACH, UNIT), request(2, SET, 192, payload=test_record(5, "localhost", 1)),
                    request(3, SET, 193, payload=struct.pack("<I", 5))]
        panel = subprocess.Popen(["/usr/bin/python3", "-c", code, str(self.surroundings.control),
                                  *(each.hex() for each in requests)], stdout=subprocess.PIPE)
        self.addCleanup(panel.stdout.close)
        panel.stdout.readline()
        client = self.client()
        self.assertEqual([port["port"] for port in client.status()["ports"]], [11, 16])
        panel.kill()
        panel.wait()
        wait_until(lambda: not client.status()["attached"])
        self.assertEqual([port["port"] for port in client.status()["ports"]], [11])

    def test_sequences_come_back(self):
        client = self.client()
        for sequence in (0, 1, 0x7FFFFFFF, 0xFFFFFFFF):
            client.send(request(sequence, RELOAD))
            self.assertEqual(client.reply(), (sequence, 0, b""))

    def test_options_need_an_attachment(self):
        client = self.client()
        for option in (0, 190, 191, 192, 193, 194, 195, 196, 197, 1000):
            self.assertEqual(client.set(option), errno.ENOTCONN)
        self.assertEqual(client.ask(GET, 202, 8192), (errno.ENOTCONN, b""))

    def test_options_are_checked_to_the_byte(self):
        panel = self.panel()
        port = struct.pack("<I", 5)
        for option, payload, expected in (
                (190, b"", 0), (190, b"\0", errno.EINVAL), (191, port, 0), (191, port[:3], errno.EINVAL),
                (193, port, errno.ENXIO), (194, port, errno.ENXIO), (193, b"", errno.EINVAL),
                (192, test_record(5, "localhost", 1)[:-1], errno.EINVAL), (192, test_record(64, "", 1), errno.EINVAL),
                (5, packet_list(b"\x90\x40\x64"), errno.ENXIO),
                (192, test_record(5, "localhost", 1), 0), (5, packet_list(b"\x90\x40\x64"), errno.ENXIO),
                (193, port, 0), (5, packet_list(b"\x90\x40\x64"), 0), (5, packet_list(), 0),
                (5, packet_list(b"\x90\x40\x64")[:-1], errno.EINVAL), (5, packet_list(b"") + b"\0", errno.EINVAL),
                (5, b"", errno.EINVAL), (6, packet_list(b"\x90\x40\x64"), errno.ENXIO),
                (5, packet_list(bytes(512)), 0), (5, packet_list(bytes(513)), errno.EMSGSIZE),
                (194, port, 0), (194, port, errno.ENXIO),
                (195, b"", 0), (196, b"", 0), (196, b"x", errno.EINVAL), (197, b"", 0), (197, b"x", errno.EINVAL),
                (64, b"", errno.ENOPROTOOPT), (189, b"", errno.ENOPROTOOPT), (198, b"", errno.ENOPROTOOPT),
                (202, b"", errno.ENOPROTOOPT), (0xFFFFFFFF, b"", errno.ENOPROTOOPT)):
            self.assertEqual(panel.set(option, payload), expected, (option, payload))
        self.assertEqual(panel.ask(GET, 190, 8192), (errno.ENOPROTOOPT, b""))

    def test_hosts_are_this_computer(self):
        error, data = self.panel().ask(GET, 202, 8192)
        name = socket.gethostname().encode()
        self.assertEqual(error, 0)
        self.assertEqual(data[:len(name) + 3], b"N" + name + b"\0A")
        self.assertEqual(len(data), len(name) + 19 + 1)
        self.assertEqual(data[len(name) + 7:len(name) + 10], b"\0\0L")
        self.assertEqual(data[len(name) + 16:], b"E\1\0\0")

    def test_test_notes_are_counted(self):
        panel = self.panel()
        self.assertEqual(panel.set(192, test_record(5, "localhost", 1)), 0)
        self.assertEqual(panel.set(193, struct.pack("<I", 5)), 0)
        self.assertEqual(panel.set(5, packet_list(b"\x90\x40\x64", b"\x90\x41\x64")), 0)
        test = panel.status()["ports"][1]["test"]
        self.assertEqual((test["messages"], test["bytes"], test["filtered"]), (2, 6, 2))
        self.assertEqual(test["routeProblem"], "Port 12 is not enabled as MIDI IN.")

    def test_status_too_long_for_the_asker(self):
        self.assertEqual(self.client().ask(STATUS, length=10), (errno.EMSGSIZE, b""))

    def test_malformed_requests_are_answered(self):
        client = self.client()
        for packet in (request(9, 0), request(9, 6), request(9, 0xFFFFFFFF), request(9, RELOAD, length=1),
                       request(9, ATTACH, UNIT, length=1), request(9, SET, 190, length=1),
                       request(9, SET, 190, length=0xFFFFFFFF), request(9, RELOAD) + b"\0",
                       request(9, GET, 202, length=LONGEST_DATA + 1)):
            client.send(packet)
            self.assertEqual(client.reply(), (9, errno.EINVAL, b""), packet)

    def test_packets_without_a_sequence_end_the_connection(self):
        for length in range(16):
            client = self.client()
            client.send(bytes(length))
            self.assertIsNone(client.reply())
        self.assert_served()

    def test_packets_above_the_cap_are_refused(self):
        panel = self.panel()
        for length in (LONGEST_DATA + 1, 100000, 200000):
            panel.send(request(9, SET, 0, payload=bytes(length)))
            self.assertEqual(panel.reply(), (9, errno.EINVAL, b""))
        self.assertEqual(panel.set(190), 0)

    def test_random_packets_do_no_harm(self):
        generator = random.Random(1)
        for _ in range(300):
            client = Client(self.surroundings.control)
            for _ in range(generator.randrange(10)):
                kind = generator.choice((1, 2, 2, 2, 3, 4, 5, 6, generator.randrange(1 << 32)))
                number = generator.choice((175, 192, 193, 194, 191, 202, generator.randrange(256)))
                payload = generator.randbytes(generator.randrange(40))
                packet = request(1, kind, number, payload=payload)
                if generator.random() < 0.3:
                    packet = packet[:generator.randrange(len(packet) + 1)]
                try:
                    client.send(packet)
                except OSError:
                    break
            client.close()
        self.assert_served()

    def test_client_that_does_not_read_is_closed(self):
        deaf = self.client()
        deaf.socket.setblocking(False)
        sent = 0
        try:
            while sent < 100000:
                try:
                    deaf.send(request(1, STATUS, length=LONGEST_DATA))
                    sent += 1
                except BlockingIOError:
                    time.sleep(0.001)
        except (BrokenPipeError, ConnectionResetError):
            pass
        self.assertLess(sent, 100000)
        self.assert_served()

    def test_thousand_connections_leave_the_panel_alone(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(4096, hard), hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        panel = self.panel()
        crowd = [self.client() for _ in range(1000)]
        self.assertEqual(panel.set(190), 0)
        self.assertEqual(crowd[-1].ask(RELOAD), (0, b""))
        wait_until(lambda: len(os.listdir(f"/proc/{self.service.pid}/fd")) < 60)
        self.assertEqual(panel.set(190), 0)

    def test_attachment_is_there_again_after_a_restart(self):
        self.panel()
        self.service.kill()
        self.service = self.start()
        self.assertEqual(self.panel().set(190), 0)


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

    def test_nothing_is_ever_written(self):
        self.surroundings.store({"MiscOptions": 15})
        before = stored.path(self.surroundings.preferences).stat()
        service = self.start()
        panel = self.panel()
        self.assertEqual([panel.set(option) for option in (190, 195, 196, 197)], [0] * 4)
        self.assertEqual(panel.set(191, struct.pack("<I", 77)), 0)
        self.assertEqual(service.end(), 0)
        after = stored.path(self.surroundings.preferences).stat()
        self.assertEqual((before.st_ino, before.st_mtime_ns), (after.st_ino, after.st_mtime_ns))

    def test_without_a_configuration_no_file_is_made(self):
        service = self.start()
        self.assertEqual(self.client().ask(RELOAD), (0, b""))
        self.assertEqual(service.end(), 0)
        self.assertEqual(list(self.surroundings.home.rglob("*")), [])

    def test_damaged_configuration_gives_the_defaults_and_a_line(self):
        self.surroundings.store()
        stored.path(self.surroundings.preferences).write_bytes(b"<plist>broken")
        service = self.start()
        self.assertEqual([port["port"] for port in self.client().status()["ports"]], [11])
        self.assertIn(".damaged-", service.log())

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
            self.surroundings.heard("WATCHDOG=1", 1.0)
        self.assertGreater(time.monotonic() - begin, 0.8)

    def test_watchdog_does_not_hear_a_service_that_hangs(self):
        service = self.start(environment={"WATCHDOG_USEC": "200000"})
        service.process.send_signal(signal.SIGSTOP)
        time.sleep(0.1)
        self.surroundings.forget()
        with self.assertRaises(TimeoutError):
            self.surroundings.heard("WATCHDOG=1", 0.5)

    def test_idle_it_never_wakes_up(self):
        service = self.start()
        self.panel()
        time.sleep(0.3)
        before = running_service.wake_ups(service.pid)
        time.sleep(3)
        self.assertEqual(running_service.wake_ups(service.pid) - before, 0)


if __name__ == "__main__":
    running_service.main()
