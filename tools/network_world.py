"""Computers of one's own on a wire of one's own, without rights: each is a pair of namespaces (network, host name) with a network card
whose other end is here, where a thread carries the frames. Nothing leaves this process: no frame reaches a network of this machine.

    network_world.take()                      # first of all, before any thread
    with NetworkWorld() as world:
        laptop, studio = world.computer("laptop"), world.computer("studio")
        laptop.start_service("--network", "on")
        world.wire.between(laptop, studio).loss = 0.1

What a program of a computer sends, and when, stands in `world.wire.frames`.
"""

import contextlib
import ctypes
import dataclasses
import errno
import fcntl
import heapq
import ipaddress
import json
import os
import pathlib
import random
import select
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time

import running_service

PORT = 11188
PATIENCE = 20.0
TUN = "/dev/net/tun"
_CLONE_NEWNS, _CLONE_NEWUTS, _CLONE_NEWUSER, _CLONE_NEWNET = 0x00020000, 0x04000000, 0x10000000, 0x40000000
_PR_SET_PDEATHSIG = 1
_TUNSETIFF, _TUNSETCARRIER = 0x400454CA, 0x400454E2
_IFF_TAP, _IFF_NO_PI = 2, 0x1000
_ETHERNET = 14
_IP4, _IP6 = 0x0800, 0x86DD
_UDP = 17
# How long a firewall that keeps state remembers who was spoken to.
_FIREWALL_MEMORY = 30.0
_libc = ctypes.CDLL(None, use_errno=True)


def _check(result, what):
    if result != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")


def _own_spaces():
    """The namespaces of this thread: of the network, of the host's name."""
    return [os.open(f"/proc/thread-self/ns/{kind}", os.O_RDONLY | os.O_CLOEXEC) for kind in ("net", "uts")]


def _go_into(spaces):
    for descriptor, kind in zip(spaces, (_CLONE_NEWNET, _CLONE_NEWUTS)):
        _check(_libc.setns(descriptor, kind), "setns")


def _close_all(descriptors):
    for descriptor in descriptors:
        os.close(descriptor)


def take():
    """Moves this process into namespaces in which it may do all this; why it may not, else empty."""
    if not os.path.exists(TUN):
        return f"there is no {TUN}"
    if not shutil.which("ip"):
        return "ip (iproute2) is not installed"
    user, group = os.getuid(), os.getgid()
    spaces = _CLONE_NEWNET | _CLONE_NEWUTS | _CLONE_NEWNS
    if _libc.unshare(spaces | _CLONE_NEWUSER) == 0:
        pathlib.Path("/proc/self/setgroups").write_text("deny")
        pathlib.Path("/proc/self/uid_map").write_text(f"0 {user} 1")
        pathlib.Path("/proc/self/gid_map").write_text(f"0 {group} 1")
    elif _libc.unshare(spaces) != 0:
        return "namespaces of networks are not allowed here: " + os.strerror(ctypes.get_errno())
    try:
        os.close(_open_tap("try"))
    except OSError as problem:
        return f"network cards cannot be made here: {problem}"
    return ""


def _open_tap(name):
    tap = os.open(TUN, os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        fcntl.ioctl(tap, _TUNSETIFF, struct.pack("16sH22x", name.encode(), _IFF_TAP | _IFF_NO_PI))
    except OSError:
        os.close(tap)
        raise
    return tap


@dataclasses.dataclass
class Faults:
    """What a wire does to the frames of one direction. Shares are 0 to 1, times seconds. A frame that is delayed more than the next one is
    overtaken by it."""
    loss: float = 0.0
    duplicates: float = 0.0
    delay: float = 0.0
    jitter: float = 0.0  # added to the delay, evenly distributed from -jitter to +jitter
    out: bool = False


@dataclasses.dataclass
class Datagram:
    """A UDP datagram in a frame: (address, port) of both sides, and its content."""
    source: tuple
    target: tuple
    content: bytes


def datagram_of(frame):
    """The UDP datagram that a frame carries; None when it carries something else."""
    kind = struct.unpack_from(">H", frame, 12)[0] if len(frame) >= _ETHERNET else 0
    packet = frame[_ETHERNET:]
    if kind == _IP4 and len(packet) >= 28 and packet[9] == _UDP:
        start, source, target = (packet[0] & 15) * 4, packet[12:16], packet[16:20]
    elif kind == _IP6 and len(packet) >= 48 and packet[6] == _UDP:
        start, source, target = 40, packet[8:24], packet[24:40]
    else:
        return None
    ports = struct.unpack_from(">HH", packet, start)
    return Datagram((str(ipaddress.ip_address(source)), ports[0]), (str(ipaddress.ip_address(target)), ports[1]),
                    packet[start + 8:])


def is_call(content):
    """Whether a datagram begins a sealed connection: the first message of its handshake."""
    return content[:1] == b"\x16" and content[13:14] == b"\x01"


@dataclasses.dataclass(frozen=True)
class Frame:
    """A frame that a computer has sent. time: of the monotonic clock, in seconds."""
    time: float
    computer: str
    content: bytes

    def datagram(self):
        return datagram_of(self.content)


class Wire:
    """Carries frames between the computers, in a thread of its own."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.lock = threading.Lock()
        self.plugs = {}  # descriptor: computer
        self.places = {}  # hardware address: descriptor
        self.faults = {}  # (name, name): Faults
        self.frames = []
        self.through = {}  # (name, name): when a datagram of a connection went through last
        self.waiting = []  # heap of (time, count, sender, descriptor, frame)
        self.count = 0
        self.poll = select.epoll()
        self.ending = False
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()

    def plug_in(self, computer):
        with self.lock:
            self.plugs[computer.tap] = computer
        self.poll.register(computer.tap, select.EPOLLIN)

    def between(self, sender, receiver):
        """What happens to the frames from one computer to another."""
        return self.faults.setdefault((sender.name, receiver.name), Faults())

    def both_ways(self, one, other, **changes):
        for faults in (self.between(one, other), self.between(other, one)):
            for name, value in changes.items():
                setattr(faults, name, value)

    def forget(self):
        """Forgets the frames so far."""
        with self.lock:
            self.frames = []

    def seen(self, computer=None):
        """The frames that computers, or one of them, have sent since the last `forget`."""
        with self.lock:
            return [frame for frame in self.frames if computer is None or frame.computer == computer.name]

    def seen_datagrams(self, computer=None):
        return [frame for frame in self.seen(computer) if frame.datagram()]

    def last_datagram(self, sender, receiver):
        """When the last datagram of the connection with another computer got there; questions and announcements do not count."""
        return self.through[sender.name, receiver.name]

    def end(self):
        self.ending = True
        self.thread.join()
        self.poll.close()

    def _run(self):
        while not self.ending:
            left = self.waiting[0][0] - time.monotonic() if self.waiting else 0.05
            for descriptor, _ in self.poll.poll(max(0.0, min(left, 0.05))):
                self._take(descriptor)
            while self.waiting and self.waiting[0][0] <= time.monotonic():
                _, _, sender, descriptor, frame = heapq.heappop(self.waiting)
                self._give(sender, descriptor, frame)

    def _take(self, descriptor):
        for _ in range(64):
            try:
                content = os.read(descriptor, 65536)
            except OSError:
                return
            now = time.monotonic()
            with self.lock:
                sender = self.plugs[descriptor]
                self.frames.append(Frame(now, sender.name, content))
                self.places[content[6:12]] = descriptor
                place = self.places.get(content[:6])
                targets = [place] if place is not None else [each for each in self.plugs if each != descriptor]
            sender.firewall.note_sent(now, content)
            for target in targets:
                self._pass_on(now, sender, target, content)

    def _pass_on(self, now, sender, target, content):
        receiver = self.plugs[target]
        faults = self.between(sender, receiver)
        if sender.unplugged or receiver.unplugged or faults.out or not receiver.firewall.lets_in(now, content):
            return
        for _ in range(2 if self.random.random() < faults.duplicates else 1):
            if self.random.random() < faults.loss:
                continue
            delay = faults.delay + self.random.uniform(-faults.jitter, faults.jitter)
            if delay <= 0:
                self._give(sender, target, content)
            else:
                self.count += 1
                heapq.heappush(self.waiting, (now + delay, self.count, sender, target, content))

    def _give(self, sender, descriptor, frame):
        try:
            os.write(descriptor, frame)
            datagram = datagram_of(frame)
            if datagram and datagram.content[:1] != b"V":
                self.through[sender.name, self.plugs[descriptor].name] = time.monotonic()
        except OSError as problem:
            # The card is off, or its queue is full: frames are lost as on any wire.
            if problem.errno not in (errno.EIO, errno.EAGAIN, errno.ENOBUFS):
                raise


class Firewall:
    """In front of a computer. On, it lets only those datagrams in that answer one of the computer's own, or go to an open port."""

    def __init__(self):
        self.on = False
        self.open_ports = set()
        self.spoken = {}  # (own address and port, other's address and port): when

    def note_sent(self, now, frame):
        datagram = datagram_of(frame) if self.on else None
        if datagram:
            self.spoken[datagram.source, datagram.target] = now

    def lets_in(self, now, frame):
        datagram = datagram_of(frame) if self.on else None
        if not datagram or datagram.target[1] in self.open_ports:
            return True
        key = (datagram.target, datagram.source)
        if now - self.spoken.get(key, -_FIREWALL_MEMORY) >= _FIREWALL_MEMORY:
            return False
        self.spoken[key] = now
        return True


class Capture:
    """Every packet on every interface of a computer, loopback too, from now on."""

    _ALL = 3  # protocols

    def __init__(self, computer):
        with computer.inside():
            self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(self._ALL))
        self.socket.setblocking(False)

    def take(self):
        """What was seen since the last time: (interface, frame) each."""
        seen = []
        while True:
            try:
                frame, place = self.socket.recvfrom(65536)
            except BlockingIOError:
                return seen
            seen.append((place[0], frame))

    def close(self):
        self.socket.close()


def is_of_kernel(frame):
    """Whether the kernel sent it of its own accord: the groups that a card listens to."""
    return struct.unpack_from(">H", frame, 12)[0] == _IP6 and frame[_ETHERNET + 6] == 0


class Computer:
    """A computer by name, with a home of its own and one network card, net0."""

    def __init__(self, wire, name, number, ip6=True):
        self.name = name
        self.number = number
        self.address = f"10.77.0.{number}"
        self.wire = wire
        self.firewall = Firewall()
        self.unplugged = False
        self.surroundings = running_service.Surroundings()
        self.service = None
        self._panel = None
        self.further_cards = []
        home = _own_spaces()
        _check(_libc.unshare(_CLONE_NEWNET | _CLONE_NEWUTS), "unshare")
        try:
            _check(_libc.sethostname(name.encode(), len(name.encode())), "sethostname")
            self.spaces = _own_spaces()
            # The kernel sends of its own accord only what makes an address known.
            for setting, value in (("router_solicitations", "0"), ("accept_dad", "0"), ("disable_ipv6", "0" if ip6 else "1")):
                path = pathlib.Path(f"/proc/sys/net/ipv6/conf/default/{setting}")
                if path.exists():
                    path.write_text(value)
            self._ip("link", "set", "lo", "up")
            self.tap = self._make_card("net0", self.address)
        finally:
            _go_into(home)
            _close_all(home)
        wire.plug_in(self)

    @contextlib.contextmanager
    def inside(self):
        """This thread is on the computer."""
        home = _own_spaces()
        _go_into(self.spaces)
        try:
            yield
        finally:
            _go_into(home)
            _close_all(home)

    @staticmethod
    def _ip(*arguments):
        subprocess.run(["ip", *arguments], check=True)

    def _make_card(self, name, address):
        tap = _open_tap(name)
        self._ip("link", "set", name, "up")
        self._ip("addr", "add", f"{address}/24", "brd", "+", "dev", name)
        return tap

    def add_card(self, name, address):
        """One more network card, which no wire leads to."""
        with self.inside():
            self.further_cards.append(self._make_card(name, address))

    def enter(self):
        """For a child before its program begins: it runs on this computer, and ends with this process."""
        _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM, 0, 0, 0)
        _go_into(self.spaces)

    def is_at(self, place):
        """Whether "address:port" is the link's port on this computer's card."""
        shown = self.run("ip", "-json", "addr", "show", "net0", capture_output=True).stdout
        addresses = [each["local"] for each in json.loads(shown)[0]["addr_info"]]
        return place in [f"[{each}]:{PORT}" if ":" in each else f"{each}:{PORT}" for each in addresses]

    def take_frame(self, frame):
        """A frame comes in at the card, from no computer on the wire. Lost where the card's queue is full."""
        try:
            os.write(self.tap, frame)
        except OSError as problem:
            if problem.errno not in (errno.EAGAIN, errno.ENOBUFS):
                raise

    def change_address(self, address):
        """The card has another IPv4 address from now on, and the old one no longer."""
        with self.inside():
            # In this order: with its first address a card loses the further ones of the same network.
            self._ip("addr", "del", f"{self.address}/24", "dev", "net0")
            self._ip("addr", "add", f"{address}/24", "brd", "+", "dev", "net0")
        self.address = address

    def unplug(self):
        """The cable is out behind the next switch: the computer's card does not notice."""
        self.unplugged = True

    def plug_in(self):
        self.unplugged = False

    def run(self, *command, **options):
        return subprocess.run(command, env=self.surroundings.environment, preexec_fn=self.enter, check=True, **options)

    def ip(self, *arguments):
        """The tool `ip` on this computer."""
        self.run("ip", *arguments)

    def set_carrier(self, on):
        """The cable is out of the card, or in it: the computer's kernel notices."""
        self.unplugged = not on
        fcntl.ioctl(self.tap, _TUNSETCARRIER, struct.pack("i", int(on)))

    def store(self, changes=()):
        self.surroundings.store(changes)

    def start_service(self, *arguments, midi="none", environment=None, **options):
        """A vexil3d on this computer, with the stored configuration."""
        self.close_panel()
        self.service = running_service.Service(self.surroundings, ("--midi", midi, *arguments), environment=environment,
                                               preexec_fn=self.enter, **options)
        return self.service

    def is_serving(self):
        """Whether the service takes requests."""
        try:
            self.service.client().close()
        except (FileNotFoundError, ConnectionError):
            return False
        return True

    def close_panel(self):
        if self._panel:
            self._panel.close()
            self._panel = None

    def panel(self):
        """An attached panel."""
        if self._panel is None:
            self._panel = self.service.client()
            assert self._panel.attach() == 0
        return self._panel

    def ask(self, *words):
        """The answer of the service to a command of `vexil3ctl network`, as JSON text."""
        payload = b"".join(word.encode() + b"\0" for word in words)
        client = self.service.client()
        error, data = client.ask(running_service.NETWORK, payload=payload)
        client.close()
        assert error == 0, error
        return data.decode()

    def status(self):
        """All of it, put together from as many answers as it takes."""
        client = self.service.client()
        status = None
        first = 0
        while first is not None:
            error, data = client.ask(running_service.STATUS, first, running_service.LONGEST_DATA)
            assert error == 0, error
            part = json.loads(data)
            first = part.get("next")
            if status is None:
                status = part
            else:
                for entries in ("hosts", "sessions", "ports"):
                    status[entries] += part[entries]
        client.close()
        return status

    def session(self, name):
        """What status says of the connection with another computer; None when it says nothing."""
        return next((each for each in self.status()["sessions"] if each["computer"] == name), None)

    def is_up(self, name):
        session = self.session(name)
        return session is not None and session["up"]

    def reason(self, port, side="test"):
        """Why nobody hears what is sent by the test output of a port (index), or by its output; empty when it is heard."""
        entry = next((each for each in self.status()["ports"] if each["index"] == port), {})
        return entry[side]["routeProblem"] if side in entry else "It is not there."

    def listed(self):
        """The names of the other computers in the list that panels read."""
        return [host["name"] for host in self.status()["hosts"][1:]]

    def open_test(self, port, target, target_port):
        """Opens the test output of a port to an input (index) of another computer."""
        panel = self.panel()
        assert panel.set(192, running_service.test_record(port, target, target_port)) == 0
        assert panel.set(193, struct.pack("<i", port)) == 0

    def close_test(self, port):
        assert self.panel().set(194, struct.pack("<i", port)) == 0

    def play(self, port, *messages):
        """Plays messages by a test output that is open."""
        assert self.panel().set(port, running_service.packet_list(b"".join(bytes(each) for each in messages))) == 0

    def close(self):
        self.close_panel()
        if self.service:
            self.service.process.send_signal(signal.SIGCONT)
            self.service.kill()
        _close_all(self.spaces + self.further_cards)
        self.surroundings.remove()


class NetworkWorld:
    """A wire and the computers on it."""

    def __init__(self, seed=1):
        self.wire = Wire(seed)
        self.computers = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def computer(self, name, ip6=True):
        computer = Computer(self.wire, name, len(self.computers) + 1, ip6)
        self.computers.append(computer)
        return computer

    def close(self):
        for computer in self.computers:
            computer.close()
        self.wire.end()
        for computer in self.computers:
            os.close(computer.tap)

    def wait(self, condition, what, seconds=PATIENCE):
        """Waits until a condition is true; when it was found so, on the monotonic clock."""
        end = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > end:
                raise TimeoutError(f"{what} did not come about within {seconds} s\n{self.report()}")
            time.sleep(0.005)
        return time.monotonic()

    def report(self):
        """Everything that is known of the computers, for people."""
        lines = []
        for computer in self.computers:
            if computer.service and computer.service.process.poll() is None:
                lines.append(f"{computer.name}: {computer.status()['sessions']}")
            if computer.service:
                lines.append(computer.service.log())
        return "\n".join(lines)


class StallMeter:
    """How late this machine lets a thread go on that slept: what a busy machine adds to every time that is measured on it."""

    def __init__(self):
        self.worst = 0.0
        self.ending = False
        self.thread = threading.Thread(target=self._run, daemon=True)

    def start(self):
        self.thread.start()

    def end(self):
        self.ending = True
        self.thread.join()

    def _run(self):
        while not self.ending:
            begin = time.monotonic()
            time.sleep(0.002)
            self.worst = max(self.worst, time.monotonic() - begin - 0.002)
