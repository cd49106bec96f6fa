#!/usr/bin/python3
"""Writes "ready", then every message that programs send to the window manager and the desktop by way of the root window, one JSON
object a line: its type, the window it is about, and its five words or twenty bytes."""

import ctypes
import json

CLIENT_MESSAGE = 33
SUBSTRUCTURE_NOTIFY = 1 << 19
PROPERTY_CHANGE = 1 << 22


class Data(ctypes.Union):
    _fields_ = [("bytes", ctypes.c_ubyte * 20), ("words", ctypes.c_ulong * 5)]


class Message(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("data", Data)]


class Event(ctypes.Union):
    _fields_ = [("type", ctypes.c_int), ("message", Message), ("room", ctypes.c_long * 24)]


def open_x11():
    x11 = ctypes.CDLL("libX11.so.6")
    x11.XOpenDisplay.restype = ctypes.c_void_p
    x11.XOpenDisplay.argtypes = [ctypes.c_char_p]
    x11.XDefaultRootWindow.restype = ctypes.c_ulong
    x11.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
    x11.XSelectInput.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_long]
    x11.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]
    x11.XNextEvent.argtypes = [ctypes.c_void_p, ctypes.POINTER(Event)]
    x11.XGetAtomName.restype = ctypes.c_char_p
    x11.XGetAtomName.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
    return x11


def main():
    x11 = open_x11()
    display = x11.XOpenDisplay(None)
    x11.XSelectInput(display, x11.XDefaultRootWindow(display), SUBSTRUCTURE_NOTIFY | PROPERTY_CHANGE)
    x11.XSync(display, 0)
    print("ready", flush=True)
    event = Event()
    while True:
        x11.XNextEvent(display, ctypes.byref(event))
        if event.type != CLIENT_MESSAGE:
            continue
        message = event.message
        data = message.data.bytes if message.format == 8 else message.data.words
        print(json.dumps({"type": x11.XGetAtomName(display, message.message_type).decode(), "window": message.window,
                          "data": list(data)}), flush=True)


if __name__ == "__main__":
    main()
