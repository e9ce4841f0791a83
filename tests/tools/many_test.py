"""Many modemctl at once on one instance of a real host, beside clients that are none."""

import concurrent.futures
import contextlib
import os
import pathlib
import socket
import struct
import threading
import time
import unittest

from modem_double import REQUESTS
from ox_modem import Host

CALLS, EVENTS = 50, 500
READS = ("getOperatingMode", "getBuildId", "getVoNRMode", "getModemPowerSaveMode", "getBandsInfo")


def call_of(target, code, payload, call=0):
    return struct.pack("<4I", 12 + len(payload), target, code, call) + payload


class ManyTest(unittest.TestCase):
    def setUp(self):
        self.host = Host()
        self.addCleanup(self.host.close)
        self.watches = [self.host.watch(30, answers=True) for _ in range(2)]

    def connect(self, descriptor):
        peer = socket.socket(socket.AF_UNIX)
        self.addCleanup(peer.close)
        peer.connect(str(self.host.folder / descriptor / "instance0"))
        return peer

    def until(self, condition, what):
        deadline = time.monotonic() + 30
        while not condition():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.005)

    def answers(self, *requests):
        """Each of many calls has its own answer; their serials."""
        with concurrent.futures.ThreadPoolExecutor(len(requests)) as pool:
            calls = {serial: pool.submit(self.host.call, *words, timeout=60, serial=serial)
                     for serial, words in enumerate(requests, 1000)}
        for (serial, call), words in zip(calls.items(), requests):
            answer = call.result()
            self.assertEqual((answer["method"], answer["info"]["serial"]),
                             (words[0] + "Response", serial))
        return list(calls)

    def usage(self, name):
        status = pathlib.Path(f"/proc/{self.host.process.pid}/status").read_text()
        return int(status.split(name + ":")[1].split()[0])

    def test_every_call_has_its_answer_and_every_watch_all(self):
        events = "".join(f"rrc 1 {state} 0 0\n" for state in range(EVENTS))
        threading.Thread(target=self.host.fake, args=(events,)).start()
        serials = self.answers(*([READS[i % len(READS)]] for i in range(CALLS)))
        for watch in self.watches:
            shown = [next(watch) for _ in range(CALLS + EVENTS)]
            self.assertEqual([event["rrcState"] for event in shown if "rrcState" in event],
                             list(range(EVENTS)))
            self.assertEqual(sorted(answer["info"]["serial"] for answer in shown if "info" in answer),
                             serials)
            self.assertEqual(watch.notes, [])

    def test_another_program_that_takes_the_callbacks_is_reported_and_taken_over_from(self):
        other = self.connect("vendor.lyr.modem@1.0::IModem")
        other.sendall(call_of(1, REQUESTS.index("setCallback"), struct.pack("<2I", 2, 3), 1))
        for watch in self.watches:
            self.until(lambda: watch.notes, "the report")
            self.assertIn("another program took the callbacks; they are taken back", watch.notes[0])
        self.answers(["getBuildId"])
        for watch in self.watches:
            self.assertEqual(next(watch)["method"], "getBuildIdResponse")

    def test_a_hostile_member_and_large_requests_hurt_nobody(self):
        self.answers(*(["writePrl", 0, bytes(900000)] for _ in range(40)))
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
