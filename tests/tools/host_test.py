"""The host, with a plug-in that records what it is given."""

import os
import signal
import subprocess
import tempfile
import unittest

HOST, PLUGIN, NO_PLUGIN, MODEMCTL = (
    os.environ[name] for name in ("HOST", "PLUGIN", "NO_PLUGIN", "MODEMCTL"))


def start(*words, **environment):
    return subprocess.Popen([HOST, *words], text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, env={**os.environ, **environment})


class HostTest(unittest.TestCase):
    def test_serves_until_a_signal_and_leaves_cleanly(self):
        rows = [
            (["-i", "0"], {}, "0: -i 0", signal.SIGTERM),
            (["x", "-i1"], {}, "1: x -i1", signal.SIGINT),
            (["-i", "word"], {}, "0: -i word", signal.SIGTERM),
            (["-i", "1"], {"OX_INSTANCE": "7"}, "7: -i 1", signal.SIGTERM),
            ([], {}, "none:", signal.SIGINT),
        ]
        for words, environment, recorded, stop in rows:
            with self.subTest(recorded):
                host = start("--plugin", PLUGIN, "--", *words, **environment)
                self.assertEqual(host.stdout.readline().rstrip(), recorded)
                self.assertEqual(host.stdout.readline().rstrip(), "ready: " + PLUGIN)
                host.send_signal(stop)
                self.assertEqual((host.wait(30), *host.communicate()), (0, "", ""))

    def test_says_why_it_cannot_serve(self):
        rows = [
            (["--plugin", "/none.so"], 1, "/none.so"),
            (["--plugin", NO_PLUGIN], 1, "no function onLoad"),
            (["--plugin", PLUGIN, "--", "fail"], 1, "onLoad failed with 3"),
            (["-i", "0"], 2, "not expected"),
        ]
        for words, code, reason in rows:
            with self.subTest(words):
                host = start(*words)
                self.assertIn(reason, host.communicate(timeout=30)[1])
                self.assertEqual(host.returncode, code)

    def test_outlives_whoever_read_its_output(self):
        with tempfile.TemporaryDirectory() as folder:
            host = start("--", "-i", "0", OX_RUNTIME_DIR=folder)
            self.assertIn("ready", host.stdout.readline())
            host.stdout.close()
            host.stderr.close()
            for _ in range(2):
                subprocess.run([MODEMCTL, "call", "getSimlockInfoStatus"], check=True, timeout=30,
                               env={**os.environ, "OX_RUNTIME_DIR": folder})
            host.send_signal(signal.SIGTERM)
            self.assertEqual(host.wait(30), 0)


if __name__ == "__main__":
    unittest.main()
