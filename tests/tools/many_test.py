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
        host = self.start(HOST, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (host.terminate(), host.communicate()))
        self.assertIn("ready", host.stdout.readline())

    def start(self, *words, stdout=None, stderr=None):
        return subprocess.Popen(words, env=self.environment, text=True, stdout=stdout,
                                stderr=stderr)

    def modemctl(self, *words):
        return self.start(MODEMCTL, *words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def watch(self):
        """A watch that watches, and the lines that it prints to either side."""
        watch = self.modemctl("watch", "--all", "--json")
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

    def ask_many(self, serial):
        """Serial and method of each answer; every call has exactly its own."""
        calls = [(serial + i, READS[i % len(READS)]) for i in range(CALLS)]
        running = [self.modemctl("--json", "--timeout", "60", "call", "--serial", str(number), method)
                   for number, method in calls]
        yield
        for (number, method), call in zip(calls, running):
            out, err = call.communicate(timeout=90)
            self.assertEqual((call.returncode, err), (0, ""))
            answer, = map(json.loads, out.splitlines())
            self.assertEqual((answer["method"], answer["info"]["serial"]),
                             (method + "Response", number))
        yield

    def test_every_call_has_its_answer_and_every_watch_all_of_them_once(self):
        watches = [self.watch() for _ in range(2)]
        for lines, _ in watches:
            lines.clear()
        many = self.ask_many(1000)
        next(many)
        subprocess.run([MODEMCTL, "sim"], env=self.environment, text=True, stdout=subprocess.DEVNULL,
                       input="".join(f"rrc 1 {state} 0 0\n" for state in range(EVENTS)), check=True)
        next(many)
        for lines, noted in watches:
            self.until(lambda: len(lines) >= CALLS + EVENTS, "all")
            shown = list(map(json.loads, lines))
            self.assertEqual([event["rrcState"] for event in shown if "rrcState" in event],
                             list(range(EVENTS)))
            self.assertEqual(sorted(answer["info"]["serial"] for answer in shown if "info" in answer),
                             list(range(1000, 1000 + CALLS)))
            self.assertEqual(noted, [])

    def test_the_holder_killed_among_many_calls(self):
        watches = [self.watch() for _ in range(2)]
        for number in range(1, ROUNDS + 1):
            many = self.ask_many(1000 * number)
            next(many)
            self.until(lambda: sum(len(lines) for lines, _ in watches) > 0, "an answer")
            killed = int(self.relay.read_text())
            os.kill(killed, signal.SIGKILL)
            for _, noted in watches:
                self.until(lambda: len(noted) == number, f"word of the change {number}, not {noted}")
                self.assertRegex(noted[-1], rf"process {killed}, .* has gone; process \d+ holds "
                                 r"them after \d{1,3} ms; .* may have been missed")
            next(many)
            for lines, _ in watches:
                lines.clear()
        self.assertEqual([len(noted) for _, noted in watches], [ROUNDS] * 2)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
