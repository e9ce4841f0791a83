"""What `ox-modem-log` tells of a session with faults, beside what was really asked and answered."""

import collections
import concurrent.futures
import gzip
import itertools
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import time
import unittest
from xml.etree import ElementTree

KNOBS = ("fail {}", "patch {} result 1", "patch {} size 3", "delay {} 0-30", "ok {}")
FIGURES = ("errno", "result", "queueMs", "modemMs", "totalMs")
SUMMARY = ("requests", "succeeded", "failed", "unanswered", "silentByDesign", "answeredTwice",
           "undelivered")
NOT_PROVOKED = "api_(?:bind|init|reg|set_ev|sub)|subsys|suppress|atlog_cmd|pdc_(?:get|activate_reg)"


def modemctl(*words, stdin=b"", **options):
    return subprocess.run([os.environ["MODEMCTL"], "--json", *map(str, words)], input=stdin,
                          capture_output=True, timeout=90, **options)


def read_log(*words, stdin):
    program = pathlib.Path(os.environ["MODEMCTL"]).with_name("ox-modem-log")
    return subprocess.run([program, *words], input=stdin, capture_output=True, timeout=90)


# What it tells, as rows by kind.
def tell(log, *options):
    done, rows = read_log("--json", *options, stdin=log), {}
    assert done.returncode == 0, (done.returncode, done.stderr)
    for row in map(json.loads, done.stdout.splitlines()):
        rows.setdefault(row["kind"], []).append(row)
    return rows


# A host with its fake modem, and the ledger of what was done to it.
class Session:
    def __init__(self, folder):
        self.env = {**os.environ, "OX_RUNTIME_DIR": folder}
        self.asked, self.why, self.lost = [], {}, 0
        self.serials = itertools.count(10 ** 9)
        with open(os.path.join(folder, "log.txt"), "wb") as log:
            self.host = subprocess.Popen(  # without stdin, so that its log file is descriptor 0
                ["sh", "-c", 'exec "$0" <&-', os.environ["HOST"]], stderr=log,
                stdout=subprocess.PIPE, env=self.env)
        self.host.stdout.readline()
        rows = map(json.loads, modemctl("list").stdout.splitlines())
        self.methods = {row["method"]: ["hex:00" if "vec" in argument["type"] else "0"
                                        for argument in row["arguments"]] for row in rows}

    def fake(self, *lines):
        replies = modemctl("fake", stdin="\n".join(lines).encode(), env=self.env).stdout
        return "\n".join(sum((json.loads(row)["reply"] for row in replies.splitlines()), []))

    def call(self, method, timeout=60):
        serial = next(self.serials)
        answer = modemctl("--timeout", timeout, "call", "--why", "--serial", serial, method,
                          *self.methods[method], env=self.env).stdout
        answer = json.loads(answer)
        self.asked.append((serial, method, answer.get("info", {"error": None})["error"]))
        self.why.update({serial: why for key, why in answer.items() if key == "why"})

    def lose(self, services, *lines):
        self.lost += services
        self.fake(*lines)
        time.sleep(0.3)  # a modem that starts anew is back after a tenth of a second


def run_with_faults(session, dice):
    session.fake(*["power-save 1"] * 2500)  # beyond what the host keeps of its log
    for method in session.methods:
        session.call(method)
    session.lose(7)  # by rebootModem
    functions = re.findall(rf"^modem_(?!{NOT_PROVOKED})\w+", session.fake("calls"), re.M)
    methods = sorted(set(session.methods) - {"getActiveMbnInfo", "rebootModem"})
    for _ in range(12):
        session.fake(*(dice.choice(KNOBS).format(name) for name in dice.sample(functions, 12)))
        service = dice.choice("wds dms nas at sar pdc vs".split())
        session.lose(1, f"disconnect {service}")
        with concurrent.futures.ThreadPoolExecutor(4) as side_by_side:
            list(side_by_side.map(session.call, dice.choices(methods, k=8)))
        session.fake(f"connect {service}")
    session.fake("clear")
    with subprocess.Popen([os.environ["MODEMCTL"], "watch", "--confirm-log", "--count", "1"],
                          stderr=subprocess.PIPE, env=session.env) as watch:
        try:
            watch.stderr.readline()
            session.fake("at +LOG 11 2 1 tc7")
            watch.wait(60)
        finally:
            watch.kill()
    assert modemctl("fake", "fail", "malloc", env=session.env).returncode == 1
    session.fake("at +LOG 11 1 9 more", "fail modem_pdc_get_activate_config_info")
    session.call("getActiveMbnInfo", 0.5)
    session.fake("silence modem_get_build_id", "fail modem_api_bind_nas_subscription 1 3")
    session.call("getBuildId", 0.5)
    session.lose(7, "restart")
    session.lose(1, "disconnect pdc")
    session.call("getActiveMbnInfo", 0.5)
    regular = next(row[0] for row in session.asked if row[1] == "activateRegularMbn")
    for serial in (regular, 77777):  # answered already, and never asked
        session.lose(0, f"event 22 {bytes(8).hex()}{serial.to_bytes(4, 'little').hex()}")


class LogTest(unittest.TestCase):
    def test_table_is_fresh(self):
        source = pathlib.Path(__file__).parents[2]
        with tempfile.NamedTemporaryFile() as fresh:
            subprocess.run([sys.executable, source / "tools/hidl-gen.py", fresh.name,
                            *pathlib.Path(os.environ["INTERFACES"]).glob("*.hal"),
                            "--log-table", source / "plugin"], check=True)
            self.assertEqual(fresh.read(), (source / "desk/ox_modem_table.py").read_bytes())

    def test_crash_in_each_format(self):
        texts = (("I", "LIB-OX-MODEM", "[0] ModemImpl::getBuildTime: serial = 5"),
                 ("I", "LIB-OX-MODEM", "[0] respondGetBuildTime: serial = 5, err = 0"),
                 ("I", "LIB-OX-MODEM", "[0] ModemImpl::getBuildId: serial = 6"),
                 ("F", "libc", "Fatal signal 11"))
        lives = [f"{date} 10:00:00.000  7  8 {level} {tag}: {text}\n" for (level, tag, text), date
                 in zip(texts, ("11-23", "01-01", "01-01", "01-01"))]  # the clock is set
        threads = "".join(lives).encode()
        with tempfile.TemporaryDirectory() as folder:
            adb = pathlib.Path(folder, "adb")
            adb.write_text('#!/bin/sh\n[ "$2" = emu ] && cat "$0.log"\n')
            adb.chmod(0o755)
            pathlib.Path(folder, "adb.log").write_bytes(threads)
            os.environ["PATH"] = folder + ":" + os.environ["PATH"]
            told = [tell(b"", "--adb", "emu")]
        told += map(tell, (
            threads, gzip.compress(threads), threads.decode().encode("utf-16"),
            "".join("{}/{}( 7): {}\n".format(*line) for line in texts).encode(),
            "".join("17000000{}0.000  7  8 {} {}: {}\n".format(index, *line)
                    for index, line in enumerate(texts)).encode()))
        for rows in told:
            self.assertEqual([row["text"] for row in rows["crash"]], ["Fatal signal 11"])
            first, second = rows["request"]
            self.assertEqual((first["result"], second["result"]), (0, None))
            self.assertLess(first["totalMs"] or 0, 20000)
            self.assertIn("crashed: Fatal signal 11", second["lastSign"])

    def test_tells_what_happened(self):
        print("SEED", seed := int(os.environ.get("SEED", time.time())))
        with tempfile.TemporaryDirectory() as folder:
            session, dice = Session(folder), random.Random(seed)
            self.addCleanup(session.host.kill)
            run_with_faults(session, dice)
            session.host.terminate()
            self.assertEqual(session.host.wait(60), 0)
            log = pathlib.Path(folder, "log.txt").read_bytes()
            self.assertLessEqual(os.path.getsize(folder + "/log.0.1"), 1 << 20)
            rows = tell(log, "--trace", folder + "/trace", "--svg", folder + "/picture")
            trace = json.loads(pathlib.Path(folder, "trace").read_bytes())["traceEvents"]
            picture = ElementTree.parse(folder + "/picture").getroot()
            self.assertGreater(len(picture.findall("{*}path[@class='arrow']")), 50)
        # Besides what was called there is the watching client's confirmation.
        self.assertEqual(sum(row["ph"] in "sf" for row in trace), 2 * len(session.asked) + 2)
        time_format = re.sub(rb"(?m)^.{5}(.{13}) +(\d+) +\d+ (\w) ([\w-]+): ",
                             rb"01-01\1 \3/\4( \2): ", log)
        # The last one has threads, and so knows what belongs to which of several requests at once.
        for told in (tell(time_format), rows):
            asked = [row for row in told["request"] if row["serial"] - 10 ** 9 in range(1000)]
            self.assertEqual(sorted((row["serial"], row["method"], row["result"]) for row in asked),
                             sorted(session.asked))
            self.assertNotIn(None, [row["queueMs"] for row in asked])
            self.assertEqual(collections.Counter(row["method"] for row in told["request"]),
                             {row["method"]: row["requests"] for row in told["method"]})
            self.assertEqual([row.get("byDesign") for row in asked if not row["answers"]],
                             ["yes", "no", "yes"])
        self.read(read_log("--all", stdin=log).stdout.decode(), rows)
        # A client that leaves with its answer may have left before the transport looks.
        self.assertLess(rows["summary"][0]["undelivered"], 20)
        for row in asked:
            if row["answers"]:
                self.assertLess(row["queueMs"] + row["modemMs"], row["totalMs"] + 0.001, row)
            why = [line for line in row["why"] if "exception" not in line]
            self.assertEqual(session.why.get(row["serial"], why), why)
        summary = ("notUnderstood", "servicesLost", "bindsFailed", "answeredTwice", "strayAnswers")
        self.assertEqual([rows["summary"][0][key] for key in summary], [0, session.lost, 3, 1, 1])
        self.assertEqual(rows["summary"][0]["lines"], rows["summary"][0]["pluginLines"] + 1,
                         "beside the line with the ports: nobody was cut off")
        self.assertEqual([(row["text"], row["result"].split()[0]) for row in rows["at"]],
                         [("+LOG=1,tc7", "OK"), ("+LOG=9", "ERROR")])

        # Cut anywhere, bytes changed, lines missing or doubled: it reads what is left.
        for _ in range(40):
            cut = log[-100000:-dice.randrange(1, 100000)]
            noise = bytes(dice.randrange(256) if dice.random() < 0.01 else byte for byte in cut)
            for damaged in (cut, noise, b"".join(dice.choices(cut.splitlines(True), k=300))):
                told = tell(damaged)
                summary, requests = told["summary"][0], told.get("request", [])
                self.assertEqual(summary["lines"], len(damaged.split(b"\n")) - (
                    damaged[-1:] in (b"", b"\n")))
                self.assertEqual(summary["requests"], len(requests))
                for row in requests:
                    self.assertIn(row["method"], session.methods)
                    self.assertLess(row["totalMs"] or 0, 3600000)
                    self.assertEqual(row["answers"] == 0, row["errno"] is None)

    def read(self, report, rows):
        """The text for people tells what the rows tell, in cells below their heads."""
        tables = [[line.split("\t") for line in table.rstrip("\n").split("\n")[1:]]
                  for table in report.split("\n\n")[1:]]
        for heads, *cells in tables:
            self.assertEqual({len(heads)}, set(map(len, cells)), heads)
        self.assertEqual(
            [[*row[:3], *(cell.split()[0] for cell in row[3:8])] for row in tables[-1][1:]],
            [[row["time"][6:], str(row["serial"]), row["method"],
              *("-" if row[key] is None else f"{row[key]:.0f}" for key in FIGURES)]
             for row in rows["request"]])
        self.assertEqual(list(map(int, re.findall(r"\d+", report.split("\n")[3]))),
                         [rows["summary"][0][key] for key in SUMMARY])


if __name__ == "__main__":
    unittest.main()
