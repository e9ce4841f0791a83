"""The modem service on the desk, for tests in Python.

A `Host` is a host of its own with a fake modem, in a runtime folder of its own:

    with Host() as host:
        host.fake("fail modem_get_build_id 1 1")
        assert host.call("getBuildId")["info"]["error"] == 1

The programs `ox-modem-host` and `modemctl` are taken from the folder OX_MODEM_BIN, from PATH, or
from the release build beside this file.
"""

from __future__ import annotations

import json
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import tempfile
import threading
from typing import Any, Dict, Iterator, List, Mapping, Optional, Union

Value = Union[int, str, bytes]
RELEASE = pathlib.Path(__file__).resolve().parent.parent / "build" / "release" / "bin"


class ModemError(Exception):
    """A command without a result: modemctl's exit status (2 to 4), and why."""

    def __init__(self, status: int, reason: str) -> None:
        super().__init__(reason)
        self.status = status


def program(name: str) -> str:
    """The path of a program."""
    folder = os.environ.get("OX_MODEM_BIN")
    found = shutil.which(name, path=folder) or shutil.which(name, path=str(RELEASE))
    if found is None:
        raise FileNotFoundError(f"{name} is neither on PATH nor in OX_MODEM_BIN or {RELEASE}")
    return found


class Watch(Iterator[Dict[str, Any]]):
    """Events as they come; ends when none comes for `timeout` seconds, or the service goes.

    After an end by the timeout it can be iterated again. `notes` has what modemctl says beside.
    """

    def __init__(self, process: subprocess.Popen, timeout: float) -> None:
        self.process, self.timeout = process, timeout
        self.notes: List[str] = []
        self._events: queue.Queue = queue.Queue()
        watching = threading.Event()
        self.threads = [threading.Thread(target=work, daemon=True)
                        for work in (self._read, lambda: self._note(watching))]
        for thread in self.threads:
            thread.start()
        watching.wait()
        if process.poll() is not None:
            raise ModemError(process.returncode, "".join(self.notes).strip())

    def _read(self) -> None:
        for line in self.process.stdout:
            self._events.put(json.loads(line))
        self._events.put(None)

    def _note(self, watching: threading.Event) -> None:
        for line in self.process.stderr:
            if watching.is_set() or "watching instance" not in line:
                self.notes.append(line)
            else:
                watching.set()
        self.process.wait()
        watching.set()

    def __next__(self) -> Dict[str, Any]:
        try:
            event = self._events.get(timeout=self.timeout)
        except queue.Empty:
            raise StopIteration from None
        if event is None:
            self._events.put(None)
            raise StopIteration
        return event


class Desk:
    """A runtime folder of its own, and modemctl at work in it. Whatever is started ends with it."""

    def __init__(self, instance: int = 0, environment: Optional[Mapping[str, str]] = None) -> None:
        self.instance = instance
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="ox-modem-"))
        self.environment = {**os.environ, "OX_RUNTIME_DIR": str(self.folder), **(environment or {})}
        self._processes: List[subprocess.Popen] = []
        self._readers: List[threading.Thread] = []

    def __enter__(self) -> Desk:
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def close(self) -> None:
        """Ends all processes and removes the folder."""
        for process in reversed(self._processes):
            process.terminate()
            process.wait()
        for reader in self._readers:
            reader.join()
        for process in self._processes:
            for pipe in filter(None, (process.stdin, process.stdout, process.stderr)):
                pipe.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def start(self, name: str, *words: Any, **options: Any) -> subprocess.Popen:
        """Starts a program, with pipes of text unless `options` for Popen say otherwise."""
        pipes = {stream: subprocess.PIPE for stream in ("stdin", "stdout", "stderr")}
        process = subprocess.Popen([program(name), *map(str, words)],
                                   **{"env": self.environment, "text": True, **pipes, **options})
        self._processes.append(process)
        return process

    def modemctl(self, *words: Any, stdin: str = "") -> subprocess.CompletedProcess:
        """Runs modemctl to its end: `returncode`, `stdout`, `stderr`."""
        return subprocess.run([program("modemctl"), *map(str, words)], input=stdin, text=True,
                              env=self.environment, capture_output=True, timeout=600)

    def _rows(self, *words: Any, stdin: str = "", good: int = 0) -> List[Dict[str, Any]]:
        done = self.modemctl("--json", "--instance", self.instance, *words, stdin=stdin)
        if done.returncode > good:
            raise ModemError(done.returncode, done.stderr.strip() or done.stdout.strip())
        return [json.loads(line) for line in done.stdout.splitlines()]

    def call(self, method: str, *arguments: Value, timeout: float = 10,
             serial: Optional[int] = None) -> Dict[str, Any]:
        """Makes a request; its answer, also one with an error. Raises ModemError without one."""
        options = [] if serial is None else ["--serial", serial]
        with tempfile.TemporaryDirectory() as folder:
            words = []
            for argument in arguments:
                if isinstance(argument, bytes):  # may be longer than an argument of a program
                    file = pathlib.Path(folder, str(len(words)))
                    file.write_bytes(argument)
                    argument = f"@{file}"
                words.append(argument)
            return self._rows("--timeout", timeout, "call", *options, method, "--", *words,
                              good=1)[0]

    def watch(self, timeout: float = 10, answers: bool = False) -> Watch:
        """Events from now on; with `answers` also everybody's answers."""
        options = ["--all"] if answers else []
        watch = Watch(self.start("modemctl", "--json", "--instance", self.instance, "watch",
                                 *options), timeout)
        self._readers += watch.threads
        return watch

    def fake(self, *words: Any, timeout: float = 10) -> List[str]:
        """Gives the fake modem a command, or a whole scenario as one text; the lines it replies."""
        scenario = len(words) == 1
        rows = self._rows("--timeout", timeout, "fake", "--", *("-" if scenario else words),
                          stdin=str(words[0]) if scenario else "")
        return [line for row in rows for line in row["reply"] if line != "ok"]


class Host(Desk):
    """A host that serves; `process` is it."""

    def __init__(self, *words: Any, instance: int = 0,
                 environment: Optional[Mapping[str, str]] = None) -> None:
        """Starts it, with further `words` on its command line, and waits until it serves."""
        super().__init__(instance, environment)
        with open(self.folder / "log", "wb") as log:
            self.process = self.start("ox-modem-host", "--instance", instance, *words, stderr=log)
        if not any(line.startswith("ready: ") for line in self.process.stdout):
            reason = self.log()
            self.close()
            raise ModemError(self.process.returncode, reason)

    def log(self) -> str:
        """What the host has logged so far."""
        return (self.folder / "log").read_text(errors="replace")

    def stop(self, by: signal.Signals = signal.SIGTERM) -> int:
        """Ends the host by a signal; its exit status."""
        self.process.send_signal(by)
        return self.process.wait()
