"""Servers for tests of host code: the tetherhost simulator, a replay of a
recorded conversation, and a fault proxy in front of the simulator.

Each runs as a process of its own and is ended by its process id. A server
is ready once it has let go of the pipes it was started with: the simulator
points its standard streams at /dev/null once it listens (having written its
pid file), and the replay and the proxy do the same. A start therefore waits
on those pipes' end, not on a clock.
"""
import json
import os
import selectors
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Dict, List, Optional, Sequence

from . import _paths

# Where Client::Connect looks for the server.
SERVER_PORT = 4001
# How long a server may take to come up, or to end once asked.
PATIENCE_SECONDS = 30.0


class ServerError(RuntimeError):
    """A server did not come up, or did not end."""


def simulator_program() -> str:
    """The simulator beside this installation, or the one TETHERHOST_SIMULATOR names."""
    return os.environ.get("TETHERHOST_SIMULATOR", os.path.join(_paths.SERVER_DIRECTORY, "tetherhost"))


def _read_until_released(process: subprocess.Popen, what: str) -> str:
    """Everything the process writes until it lets go of both pipes."""
    selector = selectors.DefaultSelector()
    for stream in (process.stdout, process.stderr):
        selector.register(stream, selectors.EVENT_READ)
    deadline = time.monotonic() + PATIENCE_SECONDS
    output = []
    try:
        while selector.get_map():
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                _end(process)
                raise ServerError(f"{what} did not come up within {PATIENCE_SECONDS:.0f} s")
            for key, _ in selector.select(remaining):
                data = os.read(key.fd, 65536)
                if data:
                    output.append(data)
                else:
                    selector.unregister(key.fileobj)
    finally:
        selector.close()
        process.stdout.close()
        process.stderr.close()
    return b"".join(output).decode(errors="replace")


def _start(argv: List[str], pid_file: Path, what: str) -> subprocess.Popen:
    """Starts a server that writes `pid_file` once it listens; it is ready
    when the file is there after the pipes were let go, and it failed when
    it let go of them by ending instead."""
    process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    output = _read_until_released(process, what)
    if not pid_file.exists():
        try:
            status = process.wait(timeout=PATIENCE_SECONDS)
        except subprocess.TimeoutExpired:
            _end(process)
            status = process.returncode
        raise ServerError(f"{what} did not come up (status {status}): {output.strip()}")
    return process


def _end(process: subprocess.Popen) -> Optional[int]:
    """Ends the process by its id: SIGTERM, then SIGKILL when it does not go."""
    if process.poll() is None:
        os.kill(process.pid, signal.SIGTERM)
        try:
            return process.wait(timeout=PATIENCE_SECONDS)
        except subprocess.TimeoutExpired:
            os.kill(process.pid, signal.SIGKILL)
    return process.wait()


class Simulator:
    """The tetherhost simulator on 127.0.0.1:`port`, tracing every frame to
    `trace`; `chain` is a chain file or the name of a shipped chain."""

    def __init__(self, directory: Path, port: int = SERVER_PORT, chain: Optional[str] = None,
                 options: Sequence[str] = ()):
        self.port = port
        self.chain = chain
        self.trace = directory / f"simulator-{port}.trace"
        pid_file = directory / f"simulator-{port}.pid"
        argv = [simulator_program(), "--port", str(port), "--idle-exit", "0", "--pid-file", str(pid_file),
                "--trace", str(self.trace)]
        if chain is not None:
            argv += ["--chain", chain]
        argv += list(options)
        self._process = _start(argv, pid_file, "the tetherhost simulator")
        self.pid = self._process.pid

    def stop(self) -> Optional[int]:
        """Ends the simulator by its id; its exit status."""
        return _end(self._process)


class Replay:
    """A server on 127.0.0.1:`port` that plays `conversation` (a JSON Lines
    file in the shape of a recording: docs/conversations.md) to the first
    client: what the client sends is compared, what it receives is sent."""

    def __init__(self, directory: Path, conversation: str, port: int = SERVER_PORT):
        self.port = port
        self.conversation = conversation
        self._verdict_file = directory / f"replay-{port}.json"
        pid_file = directory / f"replay-{port}.pid"
        argv = [sys.executable, "-m", "tetherhost.replay", conversation, "--port", str(port), "--pid-file",
                str(pid_file), "--verdict", str(self._verdict_file)]
        self._process = _start(argv, pid_file, "the replay server")
        self.pid = self._process.pid

    def verdict(self) -> Dict[str, object]:
        """Waits for the replay to end (it ends with its script) and says how
        it went: {"ok": True} or {"ok": False, "where": ...}."""
        try:
            self._process.wait(timeout=PATIENCE_SECONDS)
        except subprocess.TimeoutExpired:
            _end(self._process)
        return json.loads(self._verdict_file.read_text())

    def stop(self) -> Optional[int]:
        return _end(self._process)


class FaultProxy:
    """The simulator on `upstream_port`, and in front of it, on `port`, a
    proxy that passes every byte through until the client sends a frame
    equal to `close_on`: then it closes both sides of that connection."""

    def __init__(self, directory: Path, close_on: bytes, port: int = SERVER_PORT, upstream_port: int = 40141,
                 chain: Optional[str] = None):
        self.port = port
        self.upstream = Simulator(directory, upstream_port, chain)
        pid_file = directory / f"faults-{port}.pid"
        argv = [sys.executable, "-m", "tetherhost.faults", "--port", str(port), "--upstream", str(upstream_port),
                "--close-on", close_on.hex(), "--pid-file", str(pid_file)]
        try:
            self._process = _start(argv, pid_file, "the fault proxy")
        except ServerError:
            self.upstream.stop()
            raise
        self.pid = self._process.pid

    def stop(self) -> Optional[int]:
        status = _end(self._process)
        self.upstream.stop()
        return status
