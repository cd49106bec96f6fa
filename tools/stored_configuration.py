"""The driver's preferences as another program sees them: which values there are, of which type, in which file. Written and
read with Python's own property lists, which share no code with the panel."""

import pathlib
import plistlib
import socket

PORTS = 64
DOMAIN = "com.sonavert.Vexil3Driver"
OLDER_DOMAIN = "com.sonavert.VexilDrv.2"


def host_id():
    machine_id = pathlib.Path("/etc/machine-id")
    text = machine_id.read_text().strip() if machine_id.exists() else ""
    return text or socket.gethostname()


def path(folder, domain=DOMAIN):
    return pathlib.Path(folder) / f"{domain}.{host_id()}.plist"


def read(folder, domain=DOMAIN):
    return plistlib.loads(path(folder, domain).read_bytes())


def store(folder, values, domain=DOMAIN, form=plistlib.FMT_XML):
    """Writes a property list as if it had always been there."""
    pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
    path(folder, domain).write_bytes(plistlib.dumps(values, fmt=form))


def signed(value):
    """The number as a signed 32-bit integer, as numbers are stored."""
    return (value + (1 << 31)) % (1 << 32) - (1 << 31)


def entry(flags=0xC0, source_port=0, target_port=0):
    """A port's options as the one number under which they are stored."""
    return signed(flags | source_port << 16 | target_port << 24)


def mask(*ports):
    """The ports of the given indices as the eight bytes of a stored mask."""
    return sum(1 << port for port in ports).to_bytes(8, "little")


def defaults():
    """All 325 values of a configuration that nobody has changed."""
    values = {"InputPorts": mask(), "OutputPorts": mask(0), "LocalPipes": mask(), "MiscOptions": 7,
              "SendGranularity": 2}
    for port in range(PORTS):
        values[f"{port + 1:02d} PortFlags"] = entry(0xC0, port, port)
        for name in ("In_CustomName", "Out_CustomName", "SrcHost", "DstHost"):
            values[f"{port + 1:02d} {name}"] = ""
    return values


def full():
    """All 325 values of a configuration with every port in use and every name set."""
    values = defaults()
    values.update(InputPorts=mask(*range(PORTS)), OutputPorts=mask(*range(PORTS)), LocalPipes=mask(9))
    for port in range(PORTS):
        number = f"{port + 1:02d}"
        values[f"{number} In_CustomName"] = f"Keyboard {number}"
        values[f"{number} Out_CustomName"] = f"Sound module {number}"
        values[f"{number} SrcHost"] = f"stage-{port % 8}"
        values[f"{number} DstHost"] = f"studio-{port % 8}"
    return values
