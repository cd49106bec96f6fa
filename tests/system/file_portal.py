#!/usr/bin/python3
"""Stands for the desktop's own file chooser on the session bus, as the toolkit meets it through the portal of files: writes "ready",
then a JSON line for each question (its method, the proposed folder and name), and answers it with the path of the next line that it
reads; an empty line cancels. Like the real one it asks about a file of the very path that it answers with, and of no other: the
person has said yes to that already."""

import json
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

SERVICE = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"
FILE_CHOOSER = "org.freedesktop.portal.FileChooser"
REQUEST = "org.freedesktop.portal.Request"
CHOSEN, CANCELLED = 0, 1
# The toolkit listens for the answer only once it knows that the question is open, and nobody can see when it does: the answer is
# given a few times. A person takes longer than that.
ANSWERS, INTERVAL = 10, 100  # milliseconds


class Request(dbus.service.Object):
    """One open question. Its methods bear the names of the bus."""

    # pylint: disable=invalid-name
    @dbus.service.signal(REQUEST, signature="ua{sv}")
    def Response(self, response, results):
        pass

    @dbus.service.method(REQUEST, in_signature="", out_signature="")
    def Close(self):
        pass


def path_of(options, key):
    """A path as it is given here: bytes with a zero at the end."""
    return bytes(options.get(key, b"")).rstrip(b"\0").decode()


class Portal(dbus.service.Object):
    requests = []

    def ask(self, method, options, connection):
        path = f"{PATH}/request/{len(self.requests) + 1}"
        request = Request(connection, path)
        self.requests.append(request)
        print(json.dumps({"method": method, "folder": path_of(options, "current_folder"),
                          "name": str(options.get("current_name", ""))}), flush=True)
        GLib.io_add_watch(sys.stdin.fileno(), GLib.IO_IN, self.answer, request)
        return dbus.ObjectPath(path)

    def answer(self, _source, _condition, request):
        path = sys.stdin.readline().rstrip("\n")
        uris = dbus.Array([GLib.filename_to_uri(path, None)] if path else [], signature="s", variant_level=1)
        response = dbus.UInt32(CHOSEN if path else CANCELLED), dbus.Dictionary({"uris": uris}, signature="sv")
        answers = iter(range(ANSWERS))

        def give():
            request.Response(*response)
            return next(answers, None) is not None
        GLib.timeout_add(INTERVAL, give)
        return False

    # pylint: disable=invalid-name
    @dbus.service.method(FILE_CHOOSER, in_signature="ssa{sv}", out_signature="o", connection_keyword="connection")
    def OpenFile(self, _parent, _title, options, connection):
        return self.ask("OpenFile", options, connection)

    @dbus.service.method(FILE_CHOOSER, in_signature="ssa{sv}", out_signature="o", connection_keyword="connection")
    def SaveFile(self, _parent, _title, options, connection):
        return self.ask("SaveFile", options, connection)

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, _interface, _name):
        return dbus.UInt32(3, variant_level=1)


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    name = dbus.service.BusName(SERVICE, bus)
    portal = Portal(bus, PATH)
    print("ready", flush=True)
    GLib.MainLoop().run()
    del name, portal


if __name__ == "__main__":
    main()
