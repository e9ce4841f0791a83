"""The service as a test scripts it, on the socket of a folder."""

import collections
import os
import pathlib
import re
import socket
import socketserver
import struct
import threading

INTERFACES = pathlib.Path(os.environ["INTERFACES"])
Request = collections.namedtuple("Request", "name serial arguments")


def methods_of(name):
    """Names in the order of their transaction codes, from 1 on."""
    text = re.sub(r"/\*.*?\*/", "", (INTERFACES / (name + ".hal")).read_text(), flags=re.S)
    return [None, *re.findall(r"(\w+)\(", text)]


REQUESTS, ANSWERS, EVENTS = map(methods_of, ("IModem", "IModemResponse", "IModemIndication"))


def text(value):
    raw = value if isinstance(value, bytes) else value.encode()
    return struct.pack("<I", len(raw)) + raw


def info(serial, error=0):
    return struct.pack("<IiI", 0, serial, error)


class Client:
    """One connection: its callbacks, and what it was seen to do."""

    def __init__(self, connection):
        self.connection = connection
        self.callbacks = ()
        self.installed = 0

    def send(self, target, code, payload, call=0):
        self.connection.sendall(struct.pack("<4I", 12 + len(payload), target, code, call) + payload)

    def answer(self, name, payload):
        self.send(self.callbacks[0], ANSWERS.index(name), payload)

    def event(self, name, payload):
        self.send(self.callbacks[1], EVENTS.index(name), payload)

    def displace(self):
        """Lets the callbacks go, as the service does when another client installs its own."""
        for callback in self.callbacks:
            self.send(0, 2, struct.pack("<I", callback))

    def leave(self):
        self.connection.shutdown(socket.SHUT_RDWR)


class Service(socketserver.ThreadingUnixStreamServer):
    """Calls on_install(client) and on_request(client, request); keeps the requests."""
    daemon_threads = True

    def __init__(self, folder, on_request=lambda *_: None, on_install=lambda _: None, replies=True):
        self.on_request, self.on_install, self.replies = on_request, on_install, replies
        self.requests = []
        path = pathlib.Path(folder, "vendor.lyr.modem@1.0::IModem", "instance0")
        path.parent.mkdir(mode=0o700)
        super().__init__(str(path), None)
        threading.Thread(target=self.serve_forever, args=(0.01,), daemon=True).start()

    def close(self):
        self.shutdown()
        self.socket.close()

    def finish_request(self, connection, _):
        client, stream = Client(connection), connection.makefile("rb")
        while header := stream.read(16):
            size, _, code, call = struct.unpack("<4I", header)
            payload = stream.read(size - 12)
            if REQUESTS[code] == "setCallback":
                client.callbacks = struct.unpack("<2I", payload)
                client.installed += 1
                if self.replies:
                    client.send(0, 1, b"", call)
                    self.on_install(client)
            else:
                request = Request(REQUESTS[code], *struct.unpack("<i", payload[:4]), payload[4:])
                self.requests.append(request)
                self.on_request(client, request)
