#!/usr/bin/python3
"""Stands for an input method on the session bus, as the toolkit meets it through the portal of IBus: writes "ready", then composes
a text under the cursor at the first letter that is typed, writes "composing", and never commits it by itself. Further keys are none
of its business. With --idle no key is, and it takes its time to say so, as a busy one does."""

import collections
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

SERVICE = "org.freedesktop.portal.IBus"
PORTAL = "org.freedesktop.IBus.Portal"
CONTEXT = "org.freedesktop.IBus.InputContext"
COMPOSED = "Klavier"
RELEASE = 1 << 30  # in the state of a key event
THINKING = 40  # milliseconds


def text(characters):
    """A text as IBus writes it, without attributes."""
    attributes = dbus.Struct(("IBusAttrList", dbus.Dictionary(signature="sv"), dbus.Array(signature="v")),
                             signature="sa{sv}av", variant_level=1)
    return dbus.Struct(("IBusText", dbus.Dictionary(signature="sv"), characters, attributes), signature="sa{sv}sv",
                       variant_level=1)


class Context(dbus.service.Object):
    """What belongs to one program. Its methods bear the names of the bus."""

    # pylint: disable=invalid-name
    composing = False
    idle = "--idle" in sys.argv

    answers = collections.deque()

    @dbus.service.method(CONTEXT, in_signature="uuu", out_signature="b", async_callbacks=("answer", "_fail"))
    def ProcessKeyEvent(self, symbol, _code, state, answer, _fail):
        if self.idle:
            self.answers.append(answer)
            GLib.timeout_add(THINKING, self.pass_a_key_on)
        elif self.composing or state & RELEASE or not chr(symbol).isalpha():
            answer(False)
        else:
            self.composing = True
            self.UpdatePreeditText(text(COMPOSED), dbus.UInt32(len(COMPOSED)), True)
            print("composing", flush=True)
            answer(True)

    def pass_a_key_on(self):
        self.answers.popleft()(False)
        return False

    @dbus.service.signal(CONTEXT, signature="vub")
    def UpdatePreeditText(self, composed, cursor, visible):
        pass

    @dbus.service.method(CONTEXT, in_signature="", out_signature="")
    def Reset(self):
        self.composing = False

    @dbus.service.method(CONTEXT, in_signature="u", out_signature="")
    def SetCapabilities(self, capabilities):
        pass

    @dbus.service.method(CONTEXT, in_signature="", out_signature="")
    def FocusIn(self):
        pass

    @dbus.service.method(CONTEXT, in_signature="", out_signature="")
    def FocusOut(self):
        pass


class Portal(dbus.service.Object):
    contexts = []

    @dbus.service.method(PORTAL, in_signature="s", out_signature="o", connection_keyword="connection")
    def CreateInputContext(self, _name, connection):  # pylint: disable=invalid-name
        path = f"/org/freedesktop/IBus/InputContext_{len(self.contexts) + 1}"
        self.contexts.append(Context(connection, path))
        return dbus.ObjectPath(path)


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    name = dbus.service.BusName(SERVICE, bus)
    portal = Portal(bus, "/org/freedesktop/IBus")
    print("ready", flush=True)
    GLib.MainLoop().run()
    del name, portal


if __name__ == "__main__":
    main()
