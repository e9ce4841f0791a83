"""The host as a test scripts it, towards modemctl: on the socket of a folder."""

import collections
import contextlib
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
    """One modemctl."""

    def __init__(self, connection):
        self.connection = connection
        self.object = 0

    def send(self, code, payload):
        header = struct.pack("<4I", 12 + len(payload), self.object, code, 0)
        self.connection.sendall(header + payload)

    def answer(self, name, payload):
        self.send(0x10000 + ANSWERS.index(name), payload)

    def event(self, name, payload):
        self.send(0x20000 + EVENTS.index(name), payload)

    def leave(self):
        with contextlib.suppress(OSError):  # it has left
            self.connection.shutdown(socket.SHUT_RDWR)


class Service(socketserver.ThreadingUnixStreamServer):
    """Calls on_join(client) and on_request(client, request); keeps the requests."""
    daemon_threads = True

    def __init__(self, folder, on_request=lambda *_: None, on_join=lambda _: None, replies=True):
        self.on_request, self.on_join, self.replies = on_request, on_join, replies
        self.requests, self.clients = [], []
        path = pathlib.Path(folder, "modemctl@1.0::Sharing", "instance0")
        path.parent.mkdir(mode=0o700, exist_ok=True)
        path.unlink(missing_ok=True)
        super().__init__(str(path), None)
        threading.Thread(target=self.serve_forever, args=(0.01,), daemon=True).start()

    def close(self):
        self.shutdown()
        self.socket.close()
        for client in self.clients:
            client.leave()

    def finish_request(self, connection, _):
        client, stream = Client(connection), connection.makefile("rb")
        self.clients.append(client)
        while header := stream.read(16):
            size, _, code, _ = struct.unpack("<4I", header)
            payload = stream.read(size - 12)
            if code == 1:
                _, client.object = struct.unpack("<2I", payload)
                if self.replies:
                    client.send(1, b"")
                    self.on_join(client)
            elif code == 2:
                client.leave()
            else:
                self.requests.append(Request(REQUESTS[code & 0xffff],
                                             *struct.unpack("<i", payload[:4]), payload[4:]))
                self.on_request(client, self.requests[-1])
