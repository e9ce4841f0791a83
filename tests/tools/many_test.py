"""Many modemctl at once on one instance of a real host, while the process between them is killed."""

import json
import os
import pathlib
import signal
import subprocess
import tempfile
import threading
import time
import unittest

HOST, MODEMCTL = os.environ["HOST"], os.environ["MODEMCTL"]
ROUNDS, CALLS, EVENTS = 10, 50, 500
READS = ("getOperatingMode", "getBuildId", "getVoNRMode", "getModemPowerSaveMode", "getBandsInfo")


class ManyTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.addCleanup(folder.cleanup)
        self.environment = {**os.environ, "OX_RUNTIME_DIR": folder.name}
        self.relay = pathlib.Path(folder.name, "modemctl@1.0::Relay", "instance0.lock")
        host = self.start(HOST)
        self.addCleanup(lambda: (host.terminate(), host.communicate()))
        self.assertIn("ready", host.stdout.readline())
        self.watches = [self.watch() for _ in range(2)]

    def start(self, *words):
        return subprocess.Popen(words, env=self.environment, text=True, stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def watch(self):
        """A watch that watches, and the lines that it prints to either side."""
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

    def many(self, first, disturb):
        """Each of many calls has its own answer, whatever happens meanwhile; their serials."""
        calls = {serial: self.start(MODEMCTL, "--json", "--timeout", "60", "call", "--serial",
                                    str(serial), READS[serial % len(READS)])
                 for serial in range(first, first + CALLS)}
        disturb()
        for serial, call in calls.items():
            out, err = call.communicate(timeout=90)
            self.assertEqual((call.returncode, err), (0, ""))
            answer, = map(json.loads, out.splitlines())
            self.assertEqual((answer["method"], answer["info"]["serial"]),
                             (READS[serial % len(READS)] + "Response", serial))
        return list(calls)

    def kill_the_holder(self):
        self.until(lambda: sum(len(lines) for lines, _ in self.watches) > 0, "an answer")
        killed = int(self.relay.read_text())
        os.kill(killed, signal.SIGKILL)
        for _, noted in self.watches:
            self.until(lambda: noted, "word of the change")
            self.assertRegex(noted.pop(), rf"process {killed}, .* has gone; process \d+ holds "
                             r"them after \d{1,3} ms; .* may have been missed")

    def test_every_call_has_its_answer_and_every_watch_all_until_the_holder_is_killed(self):
        serials = self.many(1000, lambda: self.start(MODEMCTL, "fake").communicate(
            "".join(f"rrc 1 {state} 0 0\n" for state in range(EVENTS))))
        for lines, _ in self.watches:
            self.until(lambda: len(lines) >= CALLS + EVENTS, "all")
            shown = list(map(json.loads, lines))
            self.assertEqual([event["rrcState"] for event in shown if "rrcState" in event],
                             list(range(EVENTS)))
            self.assertEqual(sorted(answer["info"]["serial"] for answer in shown if "info" in answer),
                             serials)
        for number in range(ROUNDS):
            for lines, _ in self.watches:
                lines.clear()
            self.many(2000 + 100 * number, self.kill_the_holder)
        self.assertEqual([noted for _, noted in self.watches], [[], []])


if __name__ == "__main__":
    unittest.main(warnings="ignore")
