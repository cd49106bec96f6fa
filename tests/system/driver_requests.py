"""The requests that a driver gets of the panel, each as (kind, number, length, payload): the kind of the control channel, the
number and length as they stand in the packet, the bytes behind them."""

import struct

ATTACH, SET, GET = 1, 2, 3
UNIT = 175
HOST_INFOS_SIZE = 8192


def attach():
    return (ATTACH, UNIT, 0, b"")


def command(option, payload=b""):
    return (SET, option, len(payload), payload)


def reload():
    return command(190)


def quantization(tenths_of_a_millisecond):
    return command(191, struct.pack("<I", tenths_of_a_millisecond))


def open_test(port, entry, target="", source=""):
    """The two requests that open a port's test output; `entry` is the port's options as they are stored."""
    flags, _, source_port, target_port = struct.pack("<i", entry)
    record = bytes((flags, port, source_port, target_port)) + target.encode() + b"\0" + source.encode() + b"\0" + b"\0"
    return [command(192, record), command(193, struct.pack("<i", port))]


def close_test(port):
    return command(194, struct.pack("<i", port))


def wireless(on):
    return command(195 if on else 196)


def browse():
    return command(197)


def read_hosts():
    return (GET, 202, HOST_INFOS_SIZE, b"")
