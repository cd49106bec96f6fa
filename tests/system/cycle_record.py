"""What a program on JACK was given and has given, as music/cycle_record.cpp writes it down where the program meets JACK's library."""

import collections

REALTIME = 0xF8
PEDAL, MODULATION = 64, 1
CENTRE = 0x2000


class Sounding:
    """What goes on sounding after the messages so far."""

    def __init__(self):
        self.left = set()
        self.status = 0
        self.first = None

    def hear(self, data):
        for byte in data:
            if byte >= REALTIME:
                continue
            if byte >= 0x80:
                self.status = byte if byte & 0xF0 in (0x80, 0x90, 0xB0, 0xE0) else 0
                self.first = None
            elif self.status and self.first is None:
                self.first = byte
            elif self.status:
                self._take(self.status & 0xF0, self.status & 0x0F, self.first, byte)
                self.first = None

    def _take(self, command, channel, one, two):
        if command in (0x80, 0x90):
            self._set(f"note {one} on channel {channel + 1}", command == 0x90 and two != 0)
        elif command == 0xB0 and one == PEDAL:
            self._set(f"pedal on channel {channel + 1}", two >= 64)
        elif command == 0xB0 and one == MODULATION:
            self._set(f"modulation on channel {channel + 1}", two != 0)
        elif command == 0xE0:
            self._set(f"bend on channel {channel + 1}", one | two << 7 != CENTRE)

    def _set(self, what, sounds):
        (self.left.add if sounds else self.left.discard)(what)


class CycleRecord:
    """The record in a file that a program goes on writing. Ports by their short names."""

    def __init__(self, path):
        self.path = path
        self.position = 0
        self.sounding = collections.defaultdict(Sounding)  # by what the program has given
        self.events = {"r": collections.defaultdict(list), "w": collections.defaultdict(list)}
        self.kept = set()
        self.last = collections.defaultdict(lambda: collections.deque(maxlen=20))
        self.missed = 0  # cycles that the program did not have

    def keep(self, *ports):
        """From now on `take` knows these ports."""
        self.kept.update(ports)

    def update(self):
        with open(self.path, "rb") as file:
            file.seek(self.position)
            text = file.read()
        text = text[:text.rfind(b"\n") + 1]
        self.position += len(text)
        for line in text.decode().splitlines():
            frame, kind, *rest = line.split()
            if kind == "missed":
                self.missed += 1
                continue
            port, data = rest[0].replace("_", " "), bytes.fromhex(rest[1])
            if kind == "w":
                self.sounding[port].hear(data)
                self.last[port].append(f"{frame}:{data.hex()}")
            if port in self.kept:
                self.events[kind][port].append(data)

    def take(self, kind, port):
        """The bytes of a port since the last call, without those of the clock."""
        events = self.events[kind].pop(port, [])
        return bytes(byte for event in events for byte in event if byte < REALTIME)
