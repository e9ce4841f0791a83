"""The recorder before a modem that answers at random, and recordings of the whole desk replayed."""

import ctypes
import importlib
import json
import os
import pathlib
import random
import re
import resource
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(__file__))
modem_gen = importlib.import_module("modem-gen")
GENERATOR, HEADER, ROWS, RECORDER, MODEM, STAND_IN, HOST, MODEMCTL = (
    os.environ[name] for name in ("GENERATOR", "HEADER", "ROWS", "RECORDER", "MODEM", "STAND_IN",
                                  "HOST", "MODEMCTL"))
SESSION = os.path.dirname(__file__) + "/../../tools/first-session.sh"
ANSWER = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_void_p, ctypes.c_uint32)
EVENT = ctypes.CFUNCTYPE(None, ctypes.c_int32, ctypes.c_void_p, ctypes.c_size_t)
CALLS, THREADS = 125_000, 8


def read(folder):
    """The lines of a recording, oldest first; every one has to be whole."""
    files = sorted(pathlib.Path(folder).glob("recording*"), key=lambda path: -len(path.suffix))
    return [json.loads(line) for file in files for line in file.read_text().splitlines()]


class Both:
    """Gives the same arguments at the same addresses to the modem and to the recorder."""

    def __init__(self):
        self.real, self.recorded = ctypes.CDLL(STAND_IN), ctypes.CDLL(RECORDER)
        self.api = modem_gen.load(GENERATOR).Api(*(pathlib.Path(path).read_text()
                                                   for path in (HEADER, ROWS)))
        self.came = []
        self.answer = ANSWER(lambda data, length, cookie, result: self.came.append(
            (ctypes.string_at(data, length), cookie, result)))
        self.event = EVENT(lambda event, data, length: self.came.append(
            (event, data, ctypes.string_at(data, length))))

    def scalar(self, kind):
        bits = "".join(filter(str.isdigit, kind)) or "64" * (kind == "size_t") or "32"
        return getattr(ctypes, f"c_{'' if self.api.scalars[kind] else 'u'}int{bits}")

    def arguments(self, function):
        lengths = {p.length.lstrip("*") for p in function.parameters}
        for p in function.parameters:
            if "callback" in p.type:
                yield self.answer if function.is_async else self.event
            elif p.type == "void*":
                yield ctypes.c_void_p(random.getrandbits(63))
            elif not p.is_pointer:
                kind = self.scalar(p.type)
                yield kind(random.randrange(1000) if p.name in lengths else random.getrandbits(64))
            else:
                buffer = ctypes.create_string_buffer(random.randbytes(4000).replace(b"\0", b"x"))
                if p.name in lengths:
                    ctypes.memmove(buffer, random.randrange(256).to_bytes(8, "little"), 8)
                yield buffer if p.element != "char" else ctypes.create_string_buffer(buffer[:99])

    def call(self, function):
        arguments = list(self.arguments(function))
        buffers = [a for a in arguments if isinstance(a, ctypes.Array)]
        before, outcomes = [b.raw for b in buffers], []
        for library in (self.real, self.recorded):
            self.came.clear()
            for buffer, content in zip(buffers, before):
                ctypes.memmove(buffer, content, len(content))
            result = getattr(library, function.name)(*arguments)
            early = len(self.came)
            self.real.test_flush()
            outcomes.append((result, early, list(self.came), [b.raw for b in buffers]))
        plain = {p.name: a.value for p, a in zip(function.parameters, arguments)
                 if not p.is_pointer and "callback" not in p.type and "token" not in p.words}
        return outcomes, plain


def in_process(name, folder):
    subprocess.run([sys.executable, __file__, name], check=True, timeout=200,
                   env={**os.environ, "OX_MODEM_REAL_API": STAND_IN, "OX_MODEM_RECORDING_FILES": "100",
                        "OX_MODEM_RECORDING": folder + "/recording", "OX_MODEM_RECORDING_ALL": "1"})
    return read(folder)


def every_function():
    """Each function with random arguments, and each event: what passes is the same, and recorded."""
    both, told = Both(), []
    for function in both.api.functions:
        for _ in range(20):
            (direct, recorded), plain = both.call(function)
            assert direct == recorded, (function.name, plain)
            told.append((function.name, plain, direct[0], len(direct[2])))
    both.recorded.modem_api_set_event_callback(both.event)
    for event, size in ((0, 4), (15, 24), (19, 132), (99, 3), (15, 23)):
        data = ctypes.create_string_buffer(random.randbytes(size), size)
        both.came.clear()
        both.real.test_event(event, data, size)
        assert both.came == [(event, ctypes.addressof(data), data.raw)], event
    print(json.dumps(told), file=open(os.environ["OX_MODEM_RECORDING"] + ".told", "w"))


def storm():
    both = Both()
    both.real.test_storm(both.recorded.modem_set_operating_mode, THREADS, CALLS)


def full_disk():
    both = Both()
    call = both.recorded.modem_set_operating_mode
    resource.setrlimit(resource.RLIMIT_FSIZE, (100_000, resource.RLIM_INFINITY))
    both.real.test_storm(call, 1, 10_000)
    resource.setrlimit(resource.RLIMIT_FSIZE, (resource.RLIM_INFINITY,) * 2)
    both.real.test_storm(call, 1, 10)


def desk(steps, folder, *options, **environment):
    """The answers of the desk to the steps; the fake modem's commands go to the fake modem alone."""
    environment = {**os.environ, "OX_RUNTIME_DIR": folder, **environment}
    with open(folder + "/log", "w") as log:
        host = subprocess.Popen([HOST, *options], env=environment, stdout=subprocess.PIPE, stderr=log,
                                text=True)
    assert host.stdout.readline().startswith("ready:")
    for _ in range(200):  # the modem's services connect after the start, in a replay as recorded
        state = subprocess.run([MODEMCTL, "status"], env=environment, stdout=subprocess.PIPE,
                               text=True, check=True).stdout
        if state.count("connected, bound") == 3 and "not connected" not in state:
            break
        time.sleep(0.02)
    answers = []
    for step in steps:
        if step.startswith("call") or not options:
            run = subprocess.run([MODEMCTL, *step.split()], env=environment, timeout=60,
                                 stdout=subprocess.PIPE, text=True)
            answers += [re.sub(" serial=[0-9]+", "", run.stdout)] * step.startswith("call")
        # Replayed, the next call comes in the middle of the pause that the recording made.
        time.sleep(0 if step.startswith("call") else 0.5 if options else 1)
    host.terminate()
    host.communicate(timeout=60)
    assert host.returncode == 0
    return answers, pathlib.Path(folder, "log").read_text()


def recorded(steps, folder):
    recorder = {"OX_MODEM_REAL_API": MODEM, "OX_MODEM_RECORDING": folder + "/recording",
                "OX_MODEM_RECORDING_ALL": "1", "LD_LIBRARY_PATH": os.path.dirname(RECORDER)}
    return desk(steps, folder, **recorder)[0]


class ReplayTest(unittest.TestCase):
    def test_session_is_answered_as_it_was_recorded(self):
        table = subprocess.run(["bash", "-c", f". {SESSION}; session_table"], check=True, text=True,
                               stdout=subprocess.PIPE).stdout
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "row.mbn")
            file.write_bytes(random.randbytes(2500))
            steps = [step.replace("$mbn", str(file))
                     for step in re.findall(r"^\+?modemctl (call .*?) +\|", table, re.M)]
            answers = recorded(steps, folder)
            replay = ["--replay", folder + "/recording"]
            self.assertGreater(len(answers), 30)
            for options in ([], ["--fast"]):
                again, log = desk(steps, folder, *replay, *options)
                self.assertEqual((again, "refused\n" in log), (answers, False))
            os.truncate(replay[1], os.path.getsize(replay[1]) // 2)
            again, log = desk([steps[0], steps[-1]], folder, *replay, "--fast")
            self.assertEqual((again[0], "error=0" in again[-1]), (answers[0], False))
            self.assertRegex(log, r"replay: .*, after line \d+: modem_\w+ .* is refused")

    def test_faults_come_back(self):
        steps = ["call getBuildId", "fake delay modem_get_build_time 400", "call getBuildTime",
                 "fake disconnect dms", "call getOperatingMode", "fake connect dms",
                 "fake fail modem_get_bands_info 1 1", "call getBandsInfo", "call getBandsInfo"]
        with tempfile.TemporaryDirectory() as folder:
            answers = recorded(steps, folder)
            start = time.monotonic()
            self.assertEqual(desk(steps, folder, "--replay", folder + "/recording")[0], answers)
            self.assertGreater(time.monotonic() - start, 0.4 + 4 * 0.5)


class RecorderTest(unittest.TestCase):
    def test_passes_everything_through_and_tells_it(self):
        with tempfile.TemporaryDirectory() as folder:
            in_process("every_function", folder)
            told = json.loads(pathlib.Path(folder, "recording.told").read_text())
            os.remove(folder + "/recording.told")
            lines = read(folder)
        calls = [line for line in lines if line.get("is") == "call"]
        returns = {line["n"]: line for line in lines if line.get("is") == "return"}
        answers = [line["n"] for line in lines if line.get("is") == "answer"]
        self.assertEqual(len(calls), len(told) + 1)
        for call, (name, plain, result, came) in zip(calls, told):
            self.assertEqual((call["f"], returns[call["n"]]["result"], answers.count(call["n"])),
                             (name, result, came))
            self.assertEqual(plain, {key: call["args"][key] for key in plain})
        self.assertEqual([line["event"] for line in lines if line.get("is") == "event"],
                         [0, 15, 19, 99, 15])

    def test_every_line_is_written_or_counted(self):
        for name, calls in (("storm", THREADS * CALLS), ("full_disk", 10_010)):
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                lines = in_process(name, folder)
                dropped = max(line.get("dropped", 0) for line in lines)
                self.assertEqual(sum("is" in line for line in lines) + dropped, 2 * calls)


if __name__ == "__main__":
    if len(sys.argv) > 1:
        globals()[sys.argv[1]]()
    else:
        unittest.main()
