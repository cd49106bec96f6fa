#!/usr/bin/python3
"""A driver for system tests: it serves the control channel on a socket, answers as a driver does and writes every request
but those about its status to a file, one JSON object a line, before it answers:

    {"kind": 2, "number": 191, "length": 4, "payload": "02000000"}

    recording_driver.py SOCKET RECORD [--host NAME]... [--host-infos HEX] [--refuse REQUEST=ERRNO]...
                        [--hang REQUEST]... [--die REQUEST]...

REQUEST is attach, set, get, or one option as in set:192. --refuse answers with an error, --hang not at all, --die ends the
driver without an answer. The hosts are what option 202 reads, as complete records or byte for byte.

Prints "ready" when it listens. Ends with status 0 on SIGTERM and removes its socket; dies with status 1, leaving it. The folder of
the socket is made when missing; the record file is appended to.
"""

import argparse
import errno
import json
import os
import selectors
import signal
import socket
import struct
import sys

ATTACH, SET, GET, STATUS, WATCH = 1, 2, 3, 4, 7
KIND_NAMES = {"attach": ATTACH, "set": SET, "get": GET}
REQUEST_HEADER = struct.Struct("<IIII")
REPLY_HEADER = struct.Struct("<III")
LARGEST_PACKET = REQUEST_HEADER.size + 65536
READ_HOST_INFOS = 202
STATUS_TEXT = json.dumps({
    "version": "0", "host": "here", "names": ["here"], "midi": {"backend": "alsa", "running": True, "problem": "", "realtime": ""},
    "attached": True, "options": {"wireless": False, "launchMonitor": True, "logging": True, "showConnectors": True,
                                  "sendGranularity": 2},
    "memory": "locked", "control": "", "hosts": [], "ports": []}).encode()


def host_record(name):
    """One computer as the driver lists it; the fields behind the name mean nothing to a panel."""
    return b"N" + name.encode() + b"\0A" + bytes(6) + b"L" + bytes(6) + b"E" + bytes(2)


def set_error(option, length):
    """The errno with which a driver answers a set option, 0 when it takes it."""
    if option <= 63:
        return 0 if length >= 4 else errno.EINVAL
    if option == 192:
        return 0 if length >= 7 else errno.EINVAL
    if option in (191, 193, 194):
        return 0 if length == 4 else errno.EINVAL
    if option in (190, 195, 196, 197):
        return 0 if length == 0 else errno.EINVAL
    return errno.ENOPROTOOPT


def request_pattern(text):
    """`set:192` as (kind, number), `set` as (kind, None)."""
    kind, _, number = text.partition(":")
    if kind not in KIND_NAMES:
        raise argparse.ArgumentTypeError(f"{kind}: neither attach, set nor get")
    return KIND_NAMES[kind], int(number) if number else None


def refusal(text):
    pattern, _, error = text.partition("=")
    return request_pattern(pattern), int(error)


def matches(pattern, kind, number):
    return pattern[0] == kind and pattern[1] in (None, number)


def has_gone(client):
    """Whether a client that has something to read has only its end."""
    try:
        return not client.recv(1, socket.MSG_PEEK)
    except ConnectionError:
        return True


class RecordingDriver:
    def __init__(self, arguments):
        self.arguments = arguments
        self.host_infos = arguments.host_infos
        if self.host_infos is None:
            self.host_infos = b"".join(host_record(name) for name in arguments.host) + b"\0"
        self.record = open(arguments.record, "a", encoding="ascii")
        self.selector = selectors.DefaultSelector()
        self.units = {}  # client to its attached unit, None before
        os.makedirs(os.path.dirname(os.path.abspath(arguments.socket)), mode=0o700, exist_ok=True)
        if os.path.exists(arguments.socket):
            os.unlink(arguments.socket)
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        os.umask(0o177)
        self.listener.bind(arguments.socket)
        self.listener.listen()
        self.selector.register(self.listener, selectors.EVENT_READ)

    def serve(self):
        while True:
            ready = [key.fileobj for key, _ in self.selector.select()]
            # Clients that have gone first: they free their unit before another one asks for it.
            for client in sorted((each for each in ready if each is not self.listener), key=has_gone, reverse=True):
                self.serve_client(client)
            if self.listener in ready:
                client, _ = self.listener.accept()
                self.units[client] = None
                self.selector.register(client, selectors.EVENT_READ)

    def serve_client(self, client):
        try:
            packet = client.recv(LARGEST_PACKET)
            reply = self.answer(client, packet) if packet else None
            if reply is not None:
                client.send(reply)
        except ConnectionError:
            packet = b""
        if not packet:
            self.selector.unregister(client)
            del self.units[client]
            client.close()

    def answer(self, client, packet):
        """The reply to a packet, or None when there is to be none."""
        if len(packet) < REQUEST_HEADER.size:
            raise ValueError(f"a packet of {len(packet)} bytes is no request")
        sequence, kind, number, length = REQUEST_HEADER.unpack_from(packet)
        payload = packet[REQUEST_HEADER.size:]
        if kind in (STATUS, WATCH):
            # What the window says of the driver it asks for when it likes. This driver tells how it stands, not when that changes.
            data = STATUS_TEXT if kind == STATUS else b""
            return REPLY_HEADER.pack(sequence, 0 if data else errno.EINVAL, len(data)) + data
        json.dump({"kind": kind, "number": number, "length": length, "payload": payload.hex()}, self.record)
        self.record.write("\n")
        self.record.flush()

        if any(matches(pattern, kind, number) for pattern in self.arguments.die):
            # First: the system closes the client before, and a panel could still connect to what is about to go.
            self.listener.close()
            os._exit(1)
        if any(matches(pattern, kind, number) for pattern in self.arguments.hang):
            return None
        error, data = self.result(client, kind, number, length, payload)
        for pattern, refused in self.arguments.refuse:
            if matches(pattern, kind, number):
                error, data = refused, b""
        return REPLY_HEADER.pack(sequence, error, len(data)) + data

    def result(self, client, kind, number, length, payload):
        """(errno or 0, data) of a request."""
        if len(payload) != (length if kind == SET else 0):
            return errno.EINVAL, b""
        if kind == ATTACH:
            if number in self.units.values():
                return errno.EBUSY, b""
            if not any(matches(pattern, kind, number) for pattern, _ in self.arguments.refuse):
                self.units[client] = number
            return 0, b""
        if self.units[client] is None:
            return errno.ENOTCONN, b""
        if kind == SET:
            return set_error(number, length), b""
        if kind == GET and number == READ_HOST_INFOS:
            return 0, self.host_infos[:length]
        return errno.ENOPROTOOPT, b""


def main():
    parser = argparse.ArgumentParser(description="A driver that records what a panel asks of it.")
    parser.add_argument("socket")
    parser.add_argument("record")
    parser.add_argument("--host", action="append", default=[], metavar="NAME")
    parser.add_argument("--host-infos", type=bytes.fromhex, metavar="HEX")
    parser.add_argument("--refuse", action="append", default=[], type=refusal, metavar="REQUEST=ERRNO")
    parser.add_argument("--hang", action="append", default=[], type=request_pattern, metavar="REQUEST")
    parser.add_argument("--die", action="append", default=[], type=request_pattern, metavar="REQUEST")
    arguments = parser.parse_args()

    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    driver = RecordingDriver(arguments)
    try:
        print("ready", flush=True)
        driver.serve()
    finally:
        os.unlink(arguments.socket)


if __name__ == "__main__":
    main()
