"""The set-ups that the soak test goes through: half of the ports keep their routes throughout and may lose nothing, of the others
anything may change at any time."""

import socket

import stored_configuration as stored

STEADY = range(0, 32)
WILD = range(32, 64)
PIPES = range(28, 32)  # of the steady ones
SEND_IMMEDIATELY, PORT_UNUSED, COMPUTER_UNUSED = 0x01, 0x40, 0x80
NAMES = ("Keys", "keys", "Strings", "B\u00fchne links", "A:B", "Port", "\u266a", "x" * 60)


def _name(random, port):
    """No name ever comes to another port: who connects by a name that was shown a moment ago means this one."""
    return f"{random.choice(NAMES)} {port}"


def steady_target(port):
    """The input that hears a steady output."""
    return port if port in PIPES else (port * 5 + 3) % PIPES.start


def local_names():
    host = socket.gethostname()
    return ("localhost", "LocalHost.", host, host.upper() + ".local", host + ".")


class Configuration:
    """A random one. What `shown` names is what status must show of it."""

    def __init__(self, random, wild=True):
        self.ports = [self._steady(random, port) if port in STEADY else self._wild(random, port, wild)
                      for port in range(stored.PORTS)]
        self.granularity = random.choice((0, 1, 2, 10, 37, 100))
        # Connectors are always shown: JACK would take the steady ports away.
        self.options = 1 | random.choice((0, 2)) | random.choice((0, 8))

    @staticmethod
    def _steady(random, port):
        listens_to = next(source for source in STEADY if steady_target(source) == port)
        flags = random.choice((0, SEND_IMMEDIATELY)) | (PORT_UNUSED | COMPUTER_UNUSED if port % 2 else 0)
        return {
            "in": True, "out": True, "pipe": port in PIPES, "flags": flags, "source": listens_to,
            "target": steady_target(port), "from": random.choice(local_names()), "to": random.choice(local_names()),
            "in name": _name(random, port), "out name": _name(random, port)}

    @staticmethod
    def _wild(random, port, wild):
        return {
            "in": wild and random.random() < 0.8, "out": wild and random.random() < 0.8,
            "pipe": wild and random.random() < 0.1, "flags": random.choice((0, 1)) | random.choice((0, 0x40, 0xC0, 0xC0)),
            "source": random.choice(WILD), "target": random.choice(WILD),
            "from": random.choice((*local_names(), "elsewhere")), "to": random.choice((*local_names(), "elsewhere")),
            "in name": _name(random, port), "out name": _name(random, port)}

    def store(self, folder):
        """Stores it where the service reads it."""
        values = stored.defaults()
        masks = {"InputPorts": "in", "OutputPorts": "out", "LocalPipes": "pipe"}
        for key, side in masks.items():
            values[key] = stored.mask(*(index for index, port in enumerate(self.ports) if port[side]))
        values["MiscOptions"] = self.options
        values["SendGranularity"] = self.granularity
        for index, port in enumerate(self.ports):
            number = f"{index + 1:02d}"
            values[f"{number} PortFlags"] = stored.entry(port["flags"], port["source"], port["target"])
            for key, field in (("In_CustomName", "in name"), ("Out_CustomName", "out name"), ("SrcHost", "from"),
                               ("DstHost", "to")):
                values[f"{number} {key}"] = port[field]
        stored.store(folder, values)

    def write_settings(self, path):
        """Writes it as a settings file."""
        lines = ["[Options]", "ShowEndpoints=1", f"LaunchMonitor={self.options >> 1 & 1}", "EnableLogging=0",
                 f"UseWireless={self.options >> 3 & 1}", "[General]", f"SendGranularity={self.granularity}"]
        words = {"in": "Input", "out": "Output", "pipe": "Pipe"}
        for index, port in enumerate(self.ports):
            properties = ",".join(word for side, word in words.items() if port[side])
            lines += [f"[Port_{index:02d}]", f"Properties={properties}", f"Flags={port['flags']}",
                      f"SrcPort={port['source']}", f"DstPort={port['target']}", f"SrcName={port['from']}",
                      f"DstName={port['to']}", f"InpName={port['in name']}", f"OutName={port['out name']}"]
        path.write_text("\n".join(lines) + "\n", encoding="utf-8")

    def shown(self):
        """{index: (output's name or None, input's name or None)} of the ports in use."""
        used = {}
        for index, port in enumerate(self.ports):
            output = port["out name"] if port["out"] or port["pipe"] else None
            entry = port["in name"] if port["in"] or port["pipe"] else None
            if output is not None or entry is not None:
                used[index] = (output, entry)
        return used


def shown_by(status):
    """The same of what status tells."""
    found = {}
    for port in status["ports"]:
        output, entry = port.get("output"), port.get("input")
        if output or entry:
            found[port["index"]] = (output and output["name"], entry and entry["name"])
    return found
