#!/usr/bin/python3
"""A session manager of X11 for tests. Writes the address for SESSION_MANAGER, then a line for whatever its clients do. A line "end"
on its standard input ends the session: the clients are asked to save and may ask the person; when one cancels, the session goes on,
else they are told to die.

    registered | interacts | interacted, cancelled: 0 or 1 | saved: 0 or 1 | closed
"""

import ctypes
import select
import sys

SAVE_LOCAL, SAVE_BOTH = 1, 2
INTERACT_NONE, INTERACT_ANY = 0, 2

_ice = ctypes.CDLL("libICE.so.6")
_sm = ctypes.CDLL("libSM.so.6")

Pointer = ctypes.c_void_p
Register = ctypes.CFUNCTYPE(ctypes.c_int, Pointer, Pointer, ctypes.c_char_p)
WithNumber = ctypes.CFUNCTYPE(None, Pointer, Pointer, ctypes.c_int)
Plain = ctypes.CFUNCTYPE(None, Pointer, Pointer)
SaveRequest = ctypes.CFUNCTYPE(None, Pointer, Pointer, *[ctypes.c_int] * 5)
WithList = ctypes.CFUNCTYPE(None, Pointer, Pointer, ctypes.c_int, Pointer)
NewClient = ctypes.CFUNCTYPE(ctypes.c_int, Pointer, Pointer, ctypes.POINTER(ctypes.c_ulong), Pointer,
                             ctypes.POINTER(ctypes.c_char_p))
Allow = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_char_p)
ErrorHandler = ctypes.CFUNCTYPE(None, Pointer)


class Callbacks(ctypes.Structure):
    """In the order of the library, each with data that is not used."""
    _fields_ = [field for name, kind in (
        ("register", Register), ("interact_request", WithNumber), ("interact_done", WithNumber), ("save_request", SaveRequest),
        ("save_phase2_request", Plain), ("save_done", WithNumber), ("close", WithList), ("set_properties", WithList),
        ("delete_properties", WithList), ("get_properties", Plain)) for field in ((name, kind), (name + "_data", Pointer))]


def function(library, name, result, *arguments):
    found = getattr(library, name)
    found.restype = result
    found.argtypes = arguments
    return found


accept_connection = function(_ice, "IceAcceptConnection", Pointer, Pointer, ctypes.POINTER(ctypes.c_int))
clean_up = function(_sm, "SmsCleanUp", None, Pointer)
compose_addresses = function(_ice, "IceComposeNetworkIdList", ctypes.c_char_p, ctypes.c_int, Pointer)
connection_number = function(_ice, "IceConnectionNumber", ctypes.c_int, Pointer)
die = function(_sm, "SmsDie", None, Pointer)
generate_id = function(_sm, "SmsGenerateClientID", Pointer, Pointer)
ice_connection = function(_sm, "SmsGetIceConnection", Pointer, Pointer)
close_connection = function(_ice, "IceCloseConnection", ctypes.c_int, Pointer)
initialize = function(_sm, "SmsInitialize", ctypes.c_int, ctypes.c_char_p, ctypes.c_char_p, NewClient, Pointer, Allow,
                      ctypes.c_int, ctypes.c_char_p)
interact = function(_sm, "SmsInteract", None, Pointer)
listen = function(_ice, "IceListenForConnections", ctypes.c_int, ctypes.POINTER(ctypes.c_int),
                  ctypes.POINTER(ctypes.POINTER(Pointer)), ctypes.c_int, ctypes.c_char_p)
listen_number = function(_ice, "IceGetListenConnectionNumber", ctypes.c_int, Pointer)
process_messages = function(_ice, "IceProcessMessages", ctypes.c_int, Pointer, Pointer, Pointer)
register_reply = function(_sm, "SmsRegisterClientReply", ctypes.c_int, Pointer, Pointer)
save_complete = function(_sm, "SmsSaveComplete", None, Pointer)
save_yourself = function(_sm, "SmsSaveYourself", None, Pointer, *[ctypes.c_int] * 4)
set_host_auth = function(_ice, "IceSetHostBasedAuthProc", None, Pointer, Allow)
set_io_error_handler = function(_ice, "IceSetIOErrorHandler", Pointer, ErrorHandler)
shutdown_cancelled = function(_sm, "SmsShutdownCancelled", None, Pointer)


def tell(line):
    print(line, flush=True)


class Manager:
    def __init__(self):
        self.clients = []
        self.connections = {}
        self.ending = False
        # The library keeps their addresses only.
        self.kept = [Allow(lambda _host: 1), ErrorHandler(lambda _connection: None), NewClient(self.new_client)]
        allow, on_io_error, new_client = self.kept
        set_io_error_handler(on_io_error)
        reason = ctypes.create_string_buffer(256)
        if not initialize(b"tests", b"1", new_client, None, allow, len(reason), reason):
            sys.exit(reason.value.decode())
        count, listeners = ctypes.c_int(), ctypes.POINTER(Pointer)()
        if not listen(ctypes.byref(count), ctypes.byref(listeners), len(reason), reason):
            sys.exit(reason.value.decode())
        self.listeners = {listen_number(listeners[index]): listeners[index] for index in range(count.value)}
        for listener in self.listeners.values():
            set_host_auth(listener, allow)
        addresses = compose_addresses(count.value, listeners).decode().split(",")
        tell(",".join(address for address in addresses if address.startswith(("local/", "unix/"))))

    def new_client(self, client, _data, mask, callbacks, _reason):
        # The values are kept with the manager, as the functions in them are.
        own = Callbacks(register=Register(self.register), interact_request=WithNumber(self.interact_request),
                        interact_done=WithNumber(self.interact_done), save_request=SaveRequest(lambda *_: None),
                        save_phase2_request=Plain(lambda *_: None), save_done=WithNumber(self.save_done),
                        close=WithList(self.close), set_properties=WithList(lambda *_: None),
                        delete_properties=WithList(lambda *_: None), get_properties=Plain(lambda *_: None))
        self.kept.append(own)
        ctypes.memmove(callbacks, ctypes.byref(own), ctypes.sizeof(own))
        mask[0] = (1 << 10) - 1
        self.clients.append(client)
        return 1

    def register(self, client, _data, previous):
        if previous:
            return 0  # of a session that this manager does not know
        register_reply(client, generate_id(client))
        save_yourself(client, SAVE_LOCAL, 0, INTERACT_NONE, 0)
        return 1

    def interact_request(self, client, _data, _kind):
        tell("interacts")
        interact(client)

    def interact_done(self, client, _data, cancelled):
        tell(f"interacted, cancelled: {cancelled}")
        if cancelled:
            self.ending = False
            shutdown_cancelled(client)

    def save_done(self, client, _data, success):
        if self.ending:
            tell(f"saved: {success}")
            die(client)
        elif success:
            tell("registered")  # the first time a client saves is part of its registration
            save_complete(client)

    def close(self, client, _data, _count, _reasons):
        tell("closed")
        self.clients.remove(client)
        connection = ice_connection(client)
        self.connections.pop(connection_number(connection))
        clean_up(client)
        close_connection(connection)

    def end_session(self):
        self.ending = True
        for client in self.clients:
            save_yourself(client, SAVE_BOTH, 1, INTERACT_ANY, 0)

    def run(self):
        while True:
            ready, _, _ = select.select([sys.stdin, *self.listeners, *self.connections], [], [])
            for file in ready:
                if file is sys.stdin:
                    if sys.stdin.readline() != "end\n":
                        return
                    self.end_session()
                elif file in self.listeners:
                    connection = accept_connection(self.listeners[file], ctypes.byref(ctypes.c_int()))
                    self.connections[connection_number(connection)] = connection
                elif file in self.connections and process_messages(self.connections[file], None, None) != 0:
                    self.connections.pop(file, None)


if __name__ == "__main__":
    Manager().run()
