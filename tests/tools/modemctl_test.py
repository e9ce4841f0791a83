"""The client command, against a service that the test scripts."""

import json
import os
import pathlib
import pty
import shlex
import shutil
import signal
import socket
import subprocess
import unittest
from struct import pack

from modem_double import Service, info, text
from ox_modem import Desk, Host, program

os.environ.pop("NO_COLOR", None)


def always(*calls):
    """Answers every request with these calls of the client."""
    def on_request(client, _):
        for call, *arguments in calls:
            getattr(client, call)(*arguments)
    return on_request


class ModemctlTest(unittest.TestCase):
    def setUp(self):
        self.desk = Desk()
        self.addCleanup(self.desk.close)

    def run_it(self, *words, stdin=""):
        """Exit status, stdout and stderr."""
        done = self.desk.modemctl(*words, stdin=stdin)
        return done.returncode, done.stdout, done.stderr

    def service(self, *arguments, **named):
        """A service in a folder of its own, which `run_it` looks into from now on."""
        self.setUp()
        service = Service(self.desk.folder, *arguments, **named)
        self.addCleanup(service.close)
        return service

    def test_messages(self):
        large = self.desk.folder / "large"
        large.write_bytes(bytes(1 << 20))
        rows = [
            ("", "which command?"),
            ("wach", "wach: no such command; did you mean watch?"),
            ("watch --count -1", "--count"),
            ("call getOperatngMode", "no such method; did you mean getOperatingMode?"),
            ("call setOperatingMode", "argument 1 (mode): missing, it takes mode:int32_t"),
            ("call getBuildId --out x", "its answer has no bytes for --out"),
            ("call setModemPowerSaveMode -1", "argument 1 (mode): -1 is not in 0..255"),
            ("call setAgpsTestMode 1x", "'1x' is not a number"),
            ("call setAgpsTestMode ''", "'' is not a number"),
            ("call verifyNV 1 abc", "argument 2 (data): abc is none of hex:0a0b, @file, [10,11]"),
            ("call verifyNV 1 [1,", "[1, is not a list"),
            ("call verifyNV 1 @/none", "@/none: No such file"),
            ("call verifyNV 1 @/", "@/ is a folder"),
            (f"call verifyNV 1 @{large}", "too big, at most 1047552 bytes"),
            *((words + " x", "not expected: x") for words in (
                "list", "show getBuildId", "completion bash", "watch",
                "status", "debug", "at AT")),
            *((words, "no space left on device") for words in ("--help >", "list >")),
            ("list >&- #", "bad file descriptor"),
            *((words, "; ./run.sh serve 1 starts it") for words in (
                "--instance 1 fake x", "--instance 1 at AT", "--instance 1 debug",
                "--instance 1 call rebootModem")),
        ]
        for words, line in rows:
            with self.subTest(words):
                out = "/dev/full" if words.endswith(" >") else "/dev/null"
                command = f"exec {shlex.quote(program('modemctl'))} {words.rstrip(' >')} > {out}"
                done = subprocess.run(["sh", "-c", command], capture_output=True, text=True,
                                      timeout=60, env=self.desk.environment)
                self.assertEqual(done.returncode, 3 if "run.sh" in line else 2)
                self.assertIn(line.lower(), done.stderr.lower())
                self.assertRegex(done.stderr, r"\Amodemctl: .*\n\Z")

    def test_arguments_reach_the_service(self):
        service = self.service(lambda client, request: client.answer(
            request.name + "Response", info(request.serial)))
        file = self.desk.folder / "f"
        file.write_bytes(b"\0\xff\n")
        rows = [
            ("setAgpsTestMode 0xffffffff", b"\xff" * 4),
            ("writeNVItem -2 255 0x10 hex:", pack("<iBB", -2, 255, 16) + text("")),
            (f"writePrl 1 @{file}", b"\1" + text(b"\0\xff\n")),
            ("setModemProperty -- --json text:list", text("--json") + text("text:list")),
            ("setModemProperty list at", text("list") + text("at")),
        ]
        for words, payload in rows:
            with self.subTest(words):
                self.assertEqual(self.run_it("call", "--serial=-5", *words.split())[::2], (0, ""))
                self.assertEqual(service.requests.pop(), (words.split()[0], -5, payload))

    def test_answers_as_text_as_json_and_as_bytes(self):
        ok, ok_json = info(7), '"info":{"type":0,"serial":7,"error":0}'
        rows = [
            ("readPrl 0", ok + text(b"\x0a\xff"), "serial=7 error=0 data=hex:0aff",
             ok_json + ',"data":[10,255]', b"\x0a\xff"),
            ("getBuildId", ok + text(b'a "b"\n\xff'), r'serial=7 error=0 buildId="a \"b\"\n�"',
             ok_json + r',"buildId":"a \"b\"\n�"', None),
            ("getActiveMbnInfo 0", ok + pack("<i", -2) + text(b"\0"),
             "serial=7 error=0 result=-2 configId=hex:00",
             ok_json + ',"mbnInfo":{"result":-2,"configId":[0]}', b"\0"),
        ]
        for words, payload, line, object_, content in rows:
            name = words.split()[0] + "Response"
            with self.subTest(line):
                self.service(always(("answer", name, payload)))
                call = ["call", "--serial", "7", *words.split()]
                file = self.desk.folder / "out"
                self.assertEqual(self.run_it(*call, *(["--out", str(file)] if content else [])),
                                 (0, f"{name} {line}\n", ""))
                self.assertEqual(file.read_bytes() if content else None, content)
                self.assertEqual(self.run_it("--json", *call),
                                 (0, f'{{"method":"{name}",{object_}}}\n', ""))

    def test_a_terminal_shows_colours_and_the_beginning_of_long_bytes(self):
        xs = "x" * 32
        for length, shown in ((32, f'{"78" * 32} "{xs}"'),
                              (33, f'{"78" * 32}... (33 bytes) "{xs}"...')):
            self.service(always(("answer", "readPrlResponse", info(7, 1) + text("x" * length))))
            screen, terminal = pty.openpty()
            call = self.desk.start("modemctl", "call", "--serial=7", "readPrl", 0, stdout=terminal)
            self.assertEqual(call.wait(60), 1)
            with open(screen) as lines:
                self.assertEqual(next(lines), "\x1b[1mreadPrlResponse\x1b[0m serial=7 "
                                 f"\x1b[31merror=1\x1b[0m data=hex:{shown}\n")
            os.close(terminal)

    def test_no_service_and_no_answer(self):
        rows = [
            ("goes when called", dict(on_request=always(("leave",))), 3, "gone"),
            ("does not install", dict(replies=False), 4, "no answer in 0.3 s"),
            ("does not answer", {}, 4, "no answer in 0.3 s"),
            ("sends what does not decode",
             dict(on_request=always(("answer", "rebootModemResponse", b"\0"))), 3, "gone"),
        ]
        for name, script, code, line in rows:
            with self.subTest(name):
                self.service(**script)
                result = self.run_it("call", "rebootModem", "--timeout", "0.3")
                self.assertEqual(result[:2], (code, ""))
                self.assertIn(line, result[2])

    def test_watch_prints_events_and_the_answers_of_others(self):
        def on_join(client):
            client.event("modemRRCStateInd", pack("<I4i", 0, 1, -2, 0, 3))
            client.answer("rebootModemResponse", info(9))
            client.event("powerSaveModeInd", pack("<Ii", 0, 1))
        self.service(on_join=on_join)
        self.assertEqual(self.run_it("watch", "--all", "--count=2")[:2], (
            0, "modemRRCStateInd lteValid=1 rrcState=-2 wcdmaValid=0 wcdmaRrcState=3\n"
               "rebootModemResponse serial=9 error=0\npowerSaveModeInd mode=1\n"))
        self.service(on_join=on_join)
        row = json.loads(self.run_it("watch", "-t", "--count=1", "--json")[1])
        self.assertRegex(row["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d$")

    def test_watch_ends_with_a_signal_or_with_the_service(self):
        for stop in (signal.SIGINT, signal.SIGTERM):
            self.service()
            watch = self.desk.start("modemctl", "watch")
            self.assertIn("watching", watch.stderr.readline())
            watch.send_signal(stop)
            watch.communicate(timeout=60)
            self.assertEqual(watch.returncode, 0)
        service = self.service(on_join=lambda client: (service.socket.close(), client.leave()))
        self.assertEqual(self.run_it("watch")[0], 3)

    def test_a_service_that_comes_and_goes(self):
        waiting = [self.desk.start("modemctl", *words) for words in (
            ("wait", "30"), ("call", "--wait=30", "--serial=7", "rebootModem"),
            ("watch", "--follow", "--count=2"))]
        self.assertEqual(self.run_it("wait", "0.1")[0], 3)
        self.assertIn("waiting for it", waiting[2].stderr.readline())

        def on_join(client):
            client.event("powerSaveModeInd", pack("<Ii", 0, 1))
        service = Service(self.desk.folder, always(("answer", "rebootModemResponse", info(7)),
                                              ("leave",)), on_join)
        self.assertEqual([client.wait(30) for client in waiting[:2]], [0, 0])
        self.assertIn("watching", waiting[2].stderr.readline())
        service.close()
        self.addCleanup(Service(self.desk.folder, on_join=on_join).close)
        watched, noted = waiting[2].communicate(timeout=30)
        self.assertEqual(watched, 2 * "powerSaveModeInd mode=1\n")

    def test_a_folder_that_cannot_be_used_is_named_at_once(self):
        os.chmod(self.desk.folder, 0o755)
        for folder, reason in ((self.desk.folder, "not a folder of this user's alone"),
                               (self.desk.folder / "none" / "none", "No such file"),
                               ("/tmp/" + 100 * "x", "File name too long")):
            self.desk.environment["OX_RUNTIME_DIR"] = str(folder)
            for command in ("call --wait=9 rebootModem", "watch --follow", "wait", "status"):
                with self.subTest((folder, command)):
                    status, *output = self.run_it(*command.split())
                    self.assertEqual(status, 3)
                    self.assertIn(reason, "".join(output))

    def test_fake_modem_that_does_not_reply(self):
        with socket.socket(socket.AF_UNIX) as port:
            port.bind(str(self.desk.folder / "fake-modem.0"))
            port.listen(0)
            self.assertEqual(self.run_it("fake", "state", "--timeout=0.2")[0], 4)

    def test_completion(self):
        self.desk = Host()
        self.addCleanup(self.desk.close)
        (self.desk.folder / "b file").touch()
        script = self.run_it("completion", "bash")[1]
        script += f"PATH={shlex.quote(os.path.dirname(program('modemctl')))}:$PATH; "
        for words, completed in (("call --serial 7 setSar", "setSarState"), ("compl", "completion"),
                                 ("watch --conf", "--confirm-log"), ("call --conf", ""),
                                 ("fake connect pd", "pdc"), ("fake patch x re", "result"), ("fake set agps", "agps-test-mode"),
                                 ("fake fail modem_set_sar", "modem_set_sar_dsi"),
                                 ("call writePrl 0 @b", r"@b\ file")):
            with self.subTest(words):
                run = script + (f"COMP_WORDS=(modemctl {words}) COMP_CWORD={len(words.split(' '))};"
                                '_modemctl; echo "${COMPREPLY[@]}"')
                found = subprocess.run(["bash", "-euc", run], cwd=self.desk.folder, capture_output=True,
                                       text=True, env=self.desk.environment)
                self.assertEqual((found.stdout.strip(), found.stderr), (completed, ""))

    def test_debug_of_a_device(self):
        adb = self.desk.folder / "adb"
        adb.write_text("#!/bin/sh\necho $*\n")
        for path, words, expected in (
                (adb.parent, "debug --adb", "shell lshal debug {}0\n"),
                (adb.parent, "--instance 1 --json debug --adb emu",
                 "-s emu shell lshal debug {}1 json\n"),
                ("/nowhere", "debug --adb", "modemctl: cannot run adb: No such file or directory\n")):
            adb.chmod(0o755)
            done = subprocess.run([program("modemctl"), *words.split()], text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                  env={**os.environ, "PATH": f"{path}"})
            self.assertEqual(done.stdout, expected.format("vendor.lyr.modem@1.0::IModem/instance"))

    def test_zsh_completes_an_empty_word(self):
        if shutil.which("zsh") is None:
            self.skipTest("no zsh")
        script = "compdef() { :; }; " + self.run_it("completion", "zsh")[1] + (
            "PATH=%s:$PATH; COMP_WORDS=(modemctl call '') COMP_CWORD=2; _modemctl x --; "
            "print $COMPREPLY" % os.path.dirname(program("modemctl")))
        found = subprocess.run(["zsh", "-fc", script], capture_output=True, text=True).stdout
        self.assertIn("getBuildId", found)
        self.assertNotIn("--", found)

    def test_each_request_calls_the_function_that_list_names(self):
        self.desk = Host()
        self.addCleanup(self.desk.close)
        file = self.desk.folder / "file"
        file.write_bytes(b"x")
        for request in map(json.loads, self.run_it("--json", "list")[1].splitlines()):
            if request["function"]:
                words = [str(file) if word == "hex:0a0b" and request["method"] == "loadMbnConfig"
                         else word for word in request["example"].split()[2:]]
                self.desk.fake("clear\nat +LOG 11 2 1 tc7\nwait atLogControlInfoInd")
                self.desk.call(*words)
                with self.subTest(request["method"]):
                    self.assertNotEqual(self.desk.fake("calls", request["function"]), ["0"])
                self.desk.fake("wait service.vs up bound 0\nwait at.registered")  # after rebootModem


if __name__ == "__main__":
    unittest.main(warnings="ignore")
