"""What `modemctl log` tells of a session with faults, beside what was really asked and answered."""

import json
import os
import pathlib
import random
import re
import subprocess
import tempfile
import time
import unittest
import xml.etree.ElementTree
from concurrent.futures import ThreadPoolExecutor

SILENT = "getActiveMbnInfo"  # a refusal of this one is never answered
NOT_PROVOKED = "api_(?:bind|init|reg|set_ev|sub)|subsys|suppress|atlog_cmd|pdc_(?:get|activate_reg)"


def modemctl(*words, stdin=b"", **options):
    return subprocess.run([os.environ["MODEMCTL"], "--json", *map(str, words)], input=stdin,
                          capture_output=True, timeout=90, **options)


# What it tells, as rows by kind.
def tell(log, *options):
    done, rows = modemctl("log", *options, stdin=log), {}
    assert done.returncode == 0, (done.returncode, done.stderr)
    for row in map(json.loads, done.stdout.splitlines()):
        rows.setdefault(row["kind"], []).append(row)
    return rows


# A host with its simulated modem, and the ledger of what was done to it.
class Session:
    def __init__(self, folder):
        self.env = {**os.environ, "OX_RUNTIME_DIR": folder}
        self.asked, self.lost, self.serials = [], 0, iter(range(1, 10000))
        with open(os.path.join(folder, "log.txt"), "wb") as log:
            self.host = subprocess.Popen([os.environ["HOST"]], stderr=log,
                                         stdout=subprocess.PIPE, env=self.env)
        self.log = pathlib.Path(log.name)
        with self.host.stdout as ready:
            ready.readline()
        rows = map(json.loads, modemctl("list").stdout.splitlines())
        self.methods = {row["method"]: ["hex:00" if "vec" in argument["type"] else "0"
                                        for argument in row["arguments"]] for row in rows}

    def sim(self, *lines):
        return modemctl("sim", stdin="\n".join(lines).encode(), env=self.env).stdout.decode()

    def call(self, method, timeout=60):
        serial = next(self.serials)
        answer = modemctl("--timeout", timeout, "call", "--serial", serial, method,
                          *self.methods[method], env=self.env).stdout or '{"info":{"error":null}}'
        self.asked.append((serial, method, json.loads(answer)["info"]["error"]))

    def lose(self, services, *lines):
        self.lost += services
        self.sim(*lines)
        time.sleep(0.3)  # a modem that starts anew is back after a tenth of a second


def run_with_faults(session, dice, pool):
    for method in session.methods:
        session.call(method)
    session.lose(7)  # by rebootModem
    functions = re.findall(rf"^modem_(?!{NOT_PROVOKED})\w+", session.sim("calls"), re.M)
    methods = sorted(set(session.methods) - {SILENT, "rebootModem", "sendLogControlResp"})
    knobs = ("fail {}", "patch {} result 1", "patch {} size 3", "delay {} 0-30", "ok {}")
    for _ in range(12):
        session.sim(*(dice.choice(knobs).format(name) for name in dice.sample(functions, 12)))
        service = dice.choice("wds dms nas at sar pdc vs".split())
        session.lose(1, f"disconnect {service}")
        list(pool.map(session.call, dice.choices(methods, k=8)))
        session.sim(f"connect {service}")
    session.sim("clear", "at +LOG 11 2 1 tc7")
    session.call("sendLogControlResp")
    session.sim("at +LOG 11 1 9", "fail modem_pdc_get_activate_config_info")
    session.call(SILENT, 0.5)
    session.sim("silence modem_get_build_id", "fail modem_api_bind_nas_subscription 1 3")
    session.call("getBuildId", 0.5)
    session.lose(7, "restart")
    session.lose(1, "disconnect pdc")
    session.call(SILENT, 0.5)
    regular = next(row[0] for row in session.asked if row[1] == "activateRegularMbn")
    for serial in (regular, 77777):  # answered already, and never asked
        session.lose(0, f"event 22 {bytes(8).hex()}{serial.to_bytes(4, 'little').hex()}")


class LogTest(unittest.TestCase):
    def test_tells_what_happened(self):
        print("SEED", seed := int(os.environ.get("SEED", time.time())))
        with tempfile.TemporaryDirectory() as folder:
            session, dice = Session(folder), random.Random(seed)
            self.addCleanup(session.host.kill)
            with ThreadPoolExecutor(1) as pool:
                run_with_faults(session, dice, pool)
            session.host.terminate()
            session.host.wait(60)
            log = session.log.read_bytes()
            rows = tell(log, "--trace", folder + "/trace", "--svg", folder + "/picture")
            trace = json.loads(pathlib.Path(folder, "trace").read_bytes())["traceEvents"]
            xml.etree.ElementTree.parse(folder + "/picture")
        self.assertEqual(sum(row["ph"] in "sf" for row in trace), 2 * len(session.asked))
        time_format = re.sub(rb"(?m)^(.{18}) +(\d+) +\d+ (\w) ([\w-]+): ", rb"\1 \3/\4( \2): ", log)
        for told in (rows, tell(time_format)):
            requests = sorted(told["request"], key=lambda row: row["serial"])
            shown = [(row["serial"], row["method"], row["result"]) for row in requests]
            self.assertEqual(shown, sorted(session.asked))
            self.assertNotIn(None, [row["queueMs"] for row in requests])
            self.assertEqual([row["byDesign"] for row in requests if row["answers"] == 0],
                             ["yes", "no", "yes"])
        # A client that leaves with its answer may have left before the transport looks.
        self.assertEqual([row for row in rows["request"] if row["answers"] and not row["delivered"]
                          and "peer closed" not in row["why"][-1]], [])
        self.assertTrue(all(row["why"] for row in rows["request"] if row["errno"] == 4))
        summary = ("notUnderstood", "servicesLost", "bindsFailed", "answeredTwice", "strayAnswers")
        self.assertEqual([rows["summary"][0][key] for key in summary], [0, session.lost, 3, 1, 1])
        self.assertEqual([(row["text"], row["result"].split()[0]) for row in rows["at"]],
                         [("+LOG=1,tc7", "OK"), ("+LOG=9", "ERROR")])

        # Cut anywhere, bytes changed, lines missing or doubled: it reads what is left.
        for _ in range(40):
            cut = log[:dice.randrange(1, len(log))]
            noise = bytes(dice.randrange(256) if dice.random() < 0.01 else byte for byte in cut)
            for damaged in (cut, noise, b"".join(dice.choices(log.splitlines(True), k=300))):
                lines = damaged.count(b"\n") + (not damaged.endswith(b"\n"))
                self.assertEqual(tell(damaged)["summary"][0]["lines"], lines)


if __name__ == "__main__":
    unittest.main()
