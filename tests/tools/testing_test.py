"""The examples in docs/testing.md work as written, and so do the errors of a scenario."""

import pathlib
import re
import unittest

from ox_modem import Host, ModemError

DOCUMENT = (pathlib.Path(__file__).parents[2] / "docs" / "testing.md").read_text()


def blocks(language):
    return re.findall(rf"^```{language}\n(.*?)^```$", DOCUMENT, re.M | re.S)


class TestingTest(unittest.TestCase):
    def test_python_examples(self):
        for example in blocks("python"):
            names = {}
            exec(example, names)
            for name in names:
                if name.startswith("test_"):
                    names[name]()

    def test_scenarios(self):
        with Host() as host:
            for scenario in blocks("scenario"):
                host.fake(scenario)
            for lines, status, reason in (
                    ("\nwait modemRRCStateInd", 4, "stdin:2: wait: no modemRRCStateInd in time"),
                    ("wait radio-report on", 4, "stdin:1: wait: radio-report is 'off'"),
                    ("expect nv.0.5 1", 1, "stdin:1: expect: nv.0.5 is not there"),
                    ("forget\n#\nrrc 1 x 0 0", 1, "stdin:3: rrc: argument 2 'x' is not a number"),
                    ("forget\nsleep 1s", 2, "stdin:2: sleep: '1s' is no number of seconds"),
                    ("wait modemRrcInd", 2, "stdin:1: wait: the service has no event 'modemRrcInd'"),
                    ("expect build-id", 2, "stdin:1: usage: sleep SECONDS, wait")):
                with self.subTest(lines), self.assertRaises(ModemError) as raised:
                    host.fake(lines, timeout=0.1)
                self.assertEqual(raised.exception.status, status)
                self.assertIn(reason, str(raised.exception))
            self.assertEqual(host.fake("set", "build-id", "a  # b") + host.fake("state build-id"),
                             ["build-id            a  # b"])
            self.assertEqual(host.stop(), 0)


if __name__ == "__main__":
    unittest.main()
