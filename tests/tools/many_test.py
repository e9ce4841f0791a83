"""Many modemctl at once on one instance of a real host, beside clients that are none."""

import contextlib
import json
import os
import pathlib
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest

from modem_double import REQUESTS

HOST, MODEMCTL = os.environ["HOST"], os.environ["MODEMCTL"]
CALLS, EVENTS = 50, 500
READS = ("getOperatingMode", "getBuildId", "getVoNRMode", "getModemPowerSaveMode", "getBandsInfo")


def call_of(target, code, payload, call=0):
    return struct.pack("<4I", 12 + len(payload), target, code, call) + payload


class ManyTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.environment = {**os.environ, "OX_RUNTIME_DIR": folder.name}
        self.host = self.start(HOST)
        self.addCleanup(lambda: (self.host.terminate(), self.host.communicate()))
        self.assertIn("ready", self.host.stdout.readline())
        self.watches = [self.watch() for _ in range(2)]

    def start(self, *words):
        return subprocess.Popen(words, env=self.environment, text=True, stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def connect(self, descriptor):
        peer = socket.socket(socket.AF_UNIX)
        self.addCleanup(peer.close)
        peer.connect(str(self.folder / descriptor / "instance0"))
        return peer

    def watch(self):
        """The lines that a watch prints to either side, once it watches."""
        watch = self.start(MODEMCTL, "watch", "--all", "--json")
        lines, noted = [], []
        self.assertIn("watching", watch.stderr.readline())
        for pipe, into in ((watch.stdout, lines), (watch.stderr, noted)):
            threading.Thread(target=lambda p=pipe, i=into: i.extend(p)).start()
        self.addCleanup(lambda: (watch.terminate(), watch.wait()))
        return lines, noted

    def until(self, condition, what):
        deadline = time.monotonic() + 30
        while not condition():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.005)

    def answers(self, *requests):
        """Each of many calls has its own answer; their serials."""
        calls = {serial: (words, self.start(MODEMCTL, "--json", "--timeout", "60", "call",
                                            "--serial", str(serial), *words))
                 for serial, words in enumerate(requests, 1000)}
        for serial, (words, call) in calls.items():
            out, err = call.communicate(timeout=90)
            self.assertEqual(err, "")
            answer, = map(json.loads, out.splitlines())
            self.assertEqual((answer["method"], answer["info"]["serial"]),
                             (words[0] + "Response", serial))
        return list(calls)

    def usage(self, name):
        status = pathlib.Path(f"/proc/{self.host.pid}/status").read_text()
        return int(status.split(name + ":")[1].split()[0])

    def test_every_call_has_its_answer_and_every_watch_all(self):
        events = "".join(f"rrc 1 {state} 0 0\n" for state in range(EVENTS))
        threading.Thread(target=self.start(MODEMCTL, "fake").communicate, args=(events,)).start()
        serials = self.answers(*([READS[i % len(READS)]] for i in range(CALLS)))
        for lines, noted in self.watches:
            self.until(lambda: len(lines) >= CALLS + EVENTS, "all")
            shown = list(map(json.loads, lines))
            self.assertEqual([event["rrcState"] for event in shown if "rrcState" in event],
                             list(range(EVENTS)))
            self.assertEqual(sorted(answer["info"]["serial"] for answer in shown if "info" in answer),
                             serials)
            self.assertEqual(noted, [])

    def test_another_program_that_takes_the_callbacks_is_reported_and_taken_over_from(self):
        other = self.connect("vendor.lyr.modem@1.0::IModem")
        other.sendall(call_of(1, REQUESTS.index("setCallback"), struct.pack("<2I", 2, 3), 1))
        for _, noted in self.watches:
            self.until(lambda: noted, "the report")
            self.assertIn("another program took the callbacks; they are taken back", noted[0])
        self.answers(["getBuildId"])
        self.until(lambda: all(lines for lines, _ in self.watches), "the answer")

    def test_a_hostile_member_and_large_requests_hurt_nobody(self):
        large = self.folder / "large"
        large.write_bytes(bytes(900000))
        self.answers(*(["writePrl", "0", f"@{large}"] for _ in range(40)))
        self.answers(*([request] for request in READS * 4))  # the modem's own threads start once
        threads = self.usage("Threads")
        request = call_of(1, 0x10000 + REQUESTS.index("readPrl"), struct.pack("<iB", 0, 0))
        hostile = [self.connect("modemctl@1.0::Sharing") for _ in range(10)]
        for peer in hostile:
            peer.settimeout(0.1)
            peer.sendall(call_of(1, 1, struct.pack("<2I", 3, 2)))
            with contextlib.suppress(OSError):  # it is held up, or cut
                for _ in range(20000):
                    peer.sendall(request)
        self.answers(["getBuildId"])
        if not os.environ["SANITIZER"]:  # which keeps what was freed
            self.assertLess(self.usage("VmRSS"), 64 << 10)
        for peer in hostile:
            peer.close()
        self.until(lambda: self.usage("Threads") < threads + len(hostile) / 2, "the end of their threads")


if __name__ == "__main__":
    unittest.main(warnings="ignore")
