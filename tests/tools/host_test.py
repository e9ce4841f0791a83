"""The host, with a plug-in that records what it is given."""

import os
import pty
import signal
import subprocess
import tempfile
import unittest

HOST, PLUGIN, NO_PLUGIN, MODEMCTL = (
    os.environ[name] for name in ("HOST", "PLUGIN", "NO_PLUGIN", "MODEMCTL"))


def start(*words, stderr=subprocess.PIPE, **environment):
    return subprocess.Popen([HOST, *words], text=True, stdout=subprocess.PIPE, stderr=stderr,
                            env={**os.environ, **environment})


class HostTest(unittest.TestCase):
    def test_serves_until_a_signal_and_leaves_cleanly(self):
        rows = [
            ([], {}, "0: -i 0", signal.SIGTERM),
            (["--instance", "1", "--", "x", "-y"], {"OX_INSTANCE": "7"}, "1: -i 1 x -y",
             signal.SIGINT),
        ]
        for words, environment, recorded, stop in rows:
            with self.subTest(recorded):
                host = start("--plugin", PLUGIN, *words, **environment)
                self.assertEqual([host.stdout.readline() for _ in range(2)],
                                 [recorded + "\n", f"ready: {PLUGIN} serves nothing yet\n"])
                host.send_signal(stop)
                self.assertEqual((host.wait(30), *host.communicate()), (0, "", ""))

    def test_says_why_it_cannot_serve(self):
        rows = [
            (["--plugin", "/none.so"], 1, "/none.so"),
            (["--plugin", NO_PLUGIN], 1, "no function onLoad"),
            (["--plugin", PLUGIN, "--", "fail"], 1, "onLoad failed with 3"),
            (["--", "-i1"], 2, "told by --instance"),
            (["--instance", "one"], 2, "one"),
        ]
        for words, code, reason in rows:
            with self.subTest(words):
                host = start(*words)
                self.assertIn(reason, host.communicate(timeout=30)[1])
                self.assertEqual(host.returncode, code)

    def test_serves_alone_and_outlives_whoever_read_its_output(self):
        with tempfile.TemporaryDirectory() as folder:
            host = start("--instance", "1", OX_RUNTIME_DIR=folder)
            self.assertIn(" serves vendor.lyr.modem@1.0::IModem/", host.stdout.readline())
            screen, terminal = pty.openpty()
            second = start("--instance", "1", stderr=terminal, OX_RUNTIME_DIR=folder)
            os.close(terminal)
            with open(screen) as lines:  # ends with an error unless the reason comes
                self.assertRegex(next(lines), r"\A\x1b\[2m.* I .*\x1b\[0m\n")
                reason = f"instance 1 is already served by process {host.pid} ("
                self.assertTrue(any(reason in line for line in lines))
            self.assertEqual(second.wait(30), 1)
            host.stdout.close()
            host.stderr.close()
            for _ in range(2):
                subprocess.run([MODEMCTL, "--instance=1", "call", "getOperatingMode"], check=True,
                               timeout=30, env={**os.environ, "OX_RUNTIME_DIR": folder})
            host.send_signal(signal.SIGTERM)
            self.assertEqual(host.wait(30), 0)
            self.assertEqual(os.listdir(folder + "/vendor.lyr.modem@1.0::IModem"), [])


if __name__ == "__main__":
    unittest.main()
