"""The client command, against a service that the test scripts."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import unittest
from struct import pack

from modem_double import Port, Service, info, numbers, text

MODEMCTL = os.environ["MODEMCTL"]
SERIAL = 7


def always(*calls):
    """Answers every request with these calls of the client."""
    def on_request(client, _):
        for call, *arguments in calls:
            getattr(client, call)(*arguments)
    return on_request


class ModemctlTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def start(self, *words):
        return subprocess.Popen([MODEMCTL, *words], text=True,
                                env={**os.environ, "OX_RUNTIME_DIR": self.folder}, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE)

    def run_it(self, *words, stdin=""):
        """Exit status, stdout and stderr."""
        process = self.start(*words)
        out, err = process.communicate(stdin, timeout=60)
        return process.returncode, out, err

    def service(self, *arguments, **named):
        """A service in a folder of its own, which `run_it` looks into from now on."""
        self.setUp()
        service = Service(self.folder, *arguments, **named)
        self.addCleanup(service.close)
        return service

    def test_wrong_usage_is_one_line_that_says_what_is_allowed(self):
        large = os.path.join(self.folder, "large")
        with open(large, "wb") as file:
            file.truncate(1 << 20)
        rows = [
            ("", "which command"),
            ("wach", "wach: no such command; did you mean watch?"),
            ("list extra", "list: not expected: extra"),
            ("--timeout 0 list", "--timeout"),
            ("watch --count 0", "--count"),
            ("completion fish", "bash or zsh"),
            ("call", "which method"),
            ("call getOperatngMode", "getOperatngMode: no such method; did you mean getOperatingMode?"),
            ("call setCallback 1 2", "setCallback: no such method"),
            ("call setOperatingMode", "argument 1 (mode): missing, it takes mode:int32_t"),
            ("call getOperatingMode --serial x", "--serial = x"),
            ("call setModemPowerSaveMode 300",
             "modemctl: setModemPowerSaveMode: argument 1 (mode): 300 is not in 0..255"),
            ("call setModemPowerSaveMode -1", "argument 1 (mode): -1 is not in 0..255"),
            ("call setSarState 2147483648", "2147483648 is not in -2147483648..2147483647"),
            ("call setAgpsTestMode 1x", "'1x' is not a number"),
            ("call verifyNV 1 abc", "argument 2 (data): abc is none of hex:0a0b, @file, [10,11]"),
            ("call verifyNV 1 hex:0a0", "hex:0a0 is not pairs"),
            ("call verifyNV 1 [1,256]", "256 is not in 0..255"),
            ("call verifyNV 1 [1,", "[1, is not a list"),
            ("call verifyNV 1 @/none", "/none: No such file"),
            ("call verifyNV 1 @/", "/ is a folder"),
            (f"call verifyNV 1 @{large}", "too big, at most 1047552 bytes"),
        ]
        for words, line in rows:
            with self.subTest(words):
                code, out, err = self.run_it(*words.split())
                self.assertEqual((code, out), (2, ""))
                self.assertIn(line, err)
                self.assertRegex(err, r"\Amodemctl: .*\n\Z")

    def test_arguments_reach_the_service(self):
        service = self.service(lambda client, request: client.answer(
            request.name + "Response", info(request.serial)))
        with open(os.path.join(self.folder, "f"), "wb") as file:
            file.write(b"\0\xff\n")
        at_file = "@" + file.name
        rows = [
            ("setSarState -3", pack("<i", -3)),
            ("setSarState -- -3", pack("<i", -3)),
            ("setAgpsTestMode 0xffffffff", b"\xff" * 4),
            ("writeNVItem -2 255 0x10 hex:", pack("<iBB", -2, 255, 16) + text("")),
            ("writePrl 1 hex:0a0B", b"\1" + text(b"\x0a\x0b")),
            ("writePrl 1 [10,11]", b"\1" + text(b"\x0a\x0b")),
            ("writePrl 1 text:@a", b"\1" + text("@a")),
            (f"writePrl 1 {at_file}", b"\1" + text(b"\0\xff\n")),
            ("loadMbnConfig /a/b.mbn", text("/a/b.mbn")),
            ("loadMbnConfig hex:2f", text("/")),
            ("setModemProperty --name hex:00", text("--name") + text("hex:00")),
            ("setModemProperty -- --json list", text("--json") + text("list")),
        ]
        for words, payload in rows:
            with self.subTest(words):
                code, _, err = self.run_it("call", "--serial=-5", *words.split())
                self.assertEqual((code, err), (0, ""))
                request = (words.split()[0], -5, payload)
                self.assertEqual(service.requests.pop(), request)
        self.assertEqual(self.run_it("call", "rebootModem")[0], 0)
        self.assertGreater(service.requests.pop().serial, 0)

    def test_answers_as_text_and_as_json(self):
        ok, bad = info(SERIAL), info(SERIAL, 1)
        ok_json = '"info":{"type":0,"serial":7,"error":0}'
        bands = numbers("I", 1, 78) + numbers("I") * 4
        rows = [
            ("getOperatingMode", bad + pack("<i", 0), 1, "serial=7 error=1 mode=0",
             '"info":{"type":0,"serial":7,"error":1},"mode":0'),
            ("getVoNRMode", ok + pack("<I", 2**32 - 1), 0, "serial=7 error=0 mode=4294967295",
             ok_json + ',"mode":4294967295'),
            ("readPrl 0", ok + text(b"\x0a\xff"), 0, "serial=7 error=0 data=hex:0aff",
             ok_json + ',"data":[10,255]'),
            ("getBuildId", ok + text('a "b"\n'), 0, r'serial=7 error=0 buildId="a \"b\"\n"',
             ok_json + r',"buildId":"a \"b\"\n"'),
            ("getBuildId", ok + text(b"\xff"), 0, 'serial=7 error=0 buildId="\ufffd"',
             ok_json + ',"buildId":"\ufffd"'),
            ("getMbnList", ok + pack("<I", 2) + text("a") + text("b c"), 0,
             'serial=7 error=0 mbns=[a, "b c"]', ok_json + ',"mbns":["a","b c"]'),
            ("getActiveMbnInfo 0", ok + pack("<i", -2) + text(b"\0"), 0,
             "serial=7 error=0 result=-2 configId=hex:00",
             ok_json + ',"mbnInfo":{"result":-2,"configId":[0]}'),
            ("getBandsInfo", ok + bands, 0,
             "serial=7 error=0 list1=[1, 78] list2=[] list3=[] list4=[] list5=[]",
             ok_json + ',"bands":{"list1":[1,78],"list2":[],"list3":[],"list4":[],"list5":[]}'),
        ]
        for words, payload, code, line, json in rows:
            name = words.split()[0] + "Response"
            with self.subTest(line):
                self.service(always(("answer", name, payload)))
                call = ["call", "--serial", "7", *words.split()]
                self.assertEqual(self.run_it(*call), (code, f"{name} {line}\n", ""))
                self.assertEqual(self.run_it("--json", *call),
                                 (code, f'{{"method":"{name}",{json}}}\n', ""))

    def test_a_call_whose_callbacks_are_displaced_installs_them_again(self):
        def on_install(client):
            if client.installed == 2:
                client.answer("rebootModemResponse", info(SERIAL))
        service = self.service(always(("displace",)), on_install)
        self.assertEqual(self.run_it("call", "--serial=7", "rebootModem")[0], 0)
        self.assertEqual(len(service.requests), 1)

    def test_no_service_and_no_answer(self):
        rows = [
            ("goes when called", dict(on_request=always(("leave",))), 3, "gone"),
            ("goes at once", dict(on_install=lambda client: client.leave()), 3, "gone"),
            ("does not install", dict(replies=False), 4, "no answer in 0.3 s"),
            ("does not answer", {}, 4, "no answer in 0.3 s"),
            ("sends what does not decode",
             dict(on_request=always(("answer", "rebootModemResponse", b"\0"))), 3, "gone"),
            ("is the other instance", dict(instance=1), 3, "no service"),
        ]
        for name, script, code, line in rows:
            with self.subTest(name):
                self.service(**script)
                exit_code, out, err = self.run_it("call", "rebootModem", "--timeout", "0.3")
                self.assertEqual((exit_code, out), (code, ""))
                self.assertIn(line, err)

    def test_watch_prints_events_and_the_answers_of_others(self):
        radio = (pack("<IIIQI", 0, 1, 2, 2**63, 4) + pack("<4I", 5, 6, 7, 8) + pack("<BH", 6, 7) +
                 pack("<5I", 1, 2, 3, 4, 9) + numbers("I", 1, 2, 3, 4) + numbers("I") * 3)

        def on_install(client):
            client.event("modemRRCStateInd", pack("<I4i", 0, 1, -2, 0, 3))
            client.answer("rebootModemResponse", info(9))
            client.event("modemRadioInfoReportInd", radio)
        self.service(on_install=on_install)
        code, out, _ = self.run_it("watch", "--all", "--count=2")
        self.assertEqual(code, 0)
        lines = out.splitlines()
        self.assertEqual(lines[:3], [
            "modemRRCStateInd lteValid=1 rrcState=-2 wcdmaValid=0 wcdmaRrcState=3",
            "rebootModemResponse serial=9 error=0", "modemRadioInfoReportInd"])
        self.assertEqual(lines[5], "    field3          9223372036854775808")
        self.assertEqual(lines[7], "    field5          [5, 6, 7, 8]")
        json = self.run_it("watch", "--all", "--count=2", "--json")[1].splitlines()
        self.assertEqual(json[2], '{"method":"modemRadioInfoReportInd","type":0,"radioInfo":{'
                         '"field1":1,"field2":2,"field3":9223372036854775808,"field4":4,'
                         '"field5":[5,6,7,8],"field6":6,"field7":7,"field8":[1,2,3,4],"field9":9,'
                         '"field10Entry1":[1,2,3,4],"field10Entry2":[],"field10Entry3":[],'
                         '"field10Entry4":[]}}')

    def test_watch_ends_with_a_signal_or_with_the_service(self):
        for stop, code in ((signal.SIGINT, 0), (signal.SIGTERM, 0), (None, 3)):
            with self.subTest(stop):
                self.service(on_install=lambda client: clients.append(client))
                clients, watch = [], self.start("watch")
                self.assertIn("watching", watch.stderr.readline())
                watch.send_signal(stop) if stop else clients[0].leave()
                watch.communicate(timeout=60)
                self.assertEqual(watch.returncode, code)

    def test_a_request_lost_with_the_relay_is_made_again_only_when_it_changes_nothing(self):
        def kill_once(client, request):
            if len(service.requests) == 1:
                lock = pathlib.Path(self.folder, "modemctl@1.0::Relay", "instance0.lock")
                os.kill(int(lock.read_text()), signal.SIGKILL)
            else:
                client.answer(request.name + "Response", info(request.serial) + pack("<i", 2))
        for words, requests, code, told in (("getOperatingMode", 2, 0, ""),
                                            ("setSarState 1", 1, 4, "may have done it or not")):
            with self.subTest(words):
                service = self.service(kill_once)
                result = self.run_it("call", "--timeout=1", *words.split())
                self.assertEqual((result[0], len(service.requests)), (code, requests))
                self.assertIn(told, result[2])

    def test_simulated_modem(self):
        self.assertEqual(self.run_it("sim", "x")[0], 3)
        port = Port(self.folder, {"rrc 1 -3": ["ok"], "state": ["a 1", "ok"], "x": ["error: no"]})
        self.addCleanup(port.close)
        self.assertEqual(self.run_it("sim", "rrc", "1", "-3"), (0, "ok\n", ""))
        self.assertEqual(self.run_it("sim", "x"), (1, "error: no\n", ""))
        self.assertEqual(self.run_it("sim", stdin="x\nstate\n"), (1, "error: no\na 1\nok\n", ""))
        self.assertEqual(self.run_it("sim", "silent", "--timeout=0.2")[0], 4)

    def test_list_completion_and_manual_name_every_request(self):
        listed = self.run_it("list")[1].splitlines()
        self.assertEqual(len(listed), 52)
        self.assertTrue(any(line.startswith("verifyNV item:int32_t data:vec<uint8_t>  ")
                            for line in listed))
        self.assertIn('{"method":"setSarState","arguments":[{"name":"state","type":"int32_t"}]}',
                      self.run_it("list", "--json")[1])
        script = self.run_it("completion", "bash")[1]
        for words, completed in (("call --serial 7 setSar", "setSarState"), ("compl", "completion"),
                                 ("watch --conf", "--confirm-log"), ("call setSarState ''", "")):
            run = script + (f"COMP_WORDS=(modemctl {words}) COMP_CWORD={len(words.split(' '))};"
                            '_modemctl; echo "${COMPREPLY[@]}"')
            found = subprocess.run(["bash", "-euc", run], capture_output=True, text=True)
            self.assertEqual((found.stdout.strip(), found.stderr), (completed, ""))
        page = self.run_it("man")[1]
        self.assertEqual(len(re.findall(r"^\.B (%s)" % "|".join(
            line.split()[0] + r"\b" for line in listed), page, flags=re.M)), 52)
        if shutil.which("groff"):
            checked = subprocess.run(["groff", "-man", "-ww", "-Tutf8"], input=page, text=True,
                                     capture_output=True)
            self.assertEqual(checked.stderr, "")


if __name__ == "__main__":
    unittest.main(warnings="ignore")
