#!/usr/bin/python3
"""Stands for a running panel on the session bus: writes "ready", then what every later start tells it, one line a start."""

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

NAME = "com.sonavert.vexil3"


class Panel(dbus.service.Object):
    @dbus.service.method("org.freedesktop.Application", in_signature="a{sv}", out_signature="")
    def Activate(self, data):  # pylint: disable=invalid-name
        print({str(key): str(data[key]) for key in sorted(data)}, flush=True)


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    name = dbus.service.BusName(NAME, bus)
    panel = Panel(bus, "/" + NAME.replace(".", "/"))
    print("ready", flush=True)
    GLib.MainLoop().run()
    del name, panel


if __name__ == "__main__":
    main()
