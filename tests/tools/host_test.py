"""The host, with a plug-in that records what it is given."""

import os
import pty
import signal
import subprocess
import unittest

from ox_modem import Desk

PLUGIN, NO_PLUGIN = (os.environ[name] for name in ("PLUGIN", "NO_PLUGIN"))


class HostTest(unittest.TestCase):
    def setUp(self):
        self.desk = Desk(1)
        self.addCleanup(self.desk.close)

    def start(self, *words, stderr=subprocess.PIPE, **environment):
        return self.desk.start("ox-modem-host", *words, stderr=stderr,
                               env={**self.desk.environment, **environment})

    def test_serves_until_a_signal_and_leaves_cleanly(self):
        rows = [
            ([], {}, "0: -i 0", signal.SIGTERM),
            (["--instance", "1", "--", "x", "-y"], {"OX_INSTANCE": "7"}, "1: -i 1 x -y",
             signal.SIGINT),
        ]
        for words, environment, recorded, stop in rows:
            with self.subTest(recorded):
                host = self.start("--plugin", PLUGIN, *words, **environment)
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
                host = self.start(*words)
                self.assertIn(reason, host.communicate(timeout=30)[1])
                self.assertEqual(host.returncode, code)

    def test_serves_alone_and_outlives_whoever_read_its_output(self):
        host = self.start("--instance", "1")
        self.assertIn(" serves vendor.lyr.modem@1.0::IModem/", host.stdout.readline())
        screen, terminal = pty.openpty()
        second = self.start("--instance", "1", stderr=terminal)
        os.close(terminal)
        with open(screen) as lines:  # ends with an error unless the reason comes
            self.assertRegex(next(lines), r"\A\x1b\[2m.* I .*\x1b\[0m\n")
            reason = f"instance 1 is already served by process {host.pid} ("
            self.assertTrue(any(reason in line for line in lines))
        self.assertEqual(second.wait(30), 1)
        host.stdout.close()
        host.stderr.close()
        for _ in range(2):
            self.assertEqual(self.desk.call("getOperatingMode")["info"]["error"], 0)
        host.send_signal(signal.SIGTERM)
        self.assertEqual(host.wait(30), 0)
        self.assertEqual(os.listdir(self.desk.folder / "vendor.lyr.modem@1.0::IModem"), [])


if __name__ == "__main__":
    unittest.main()
