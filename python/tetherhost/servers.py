# SPDX-License-Identifier: MIT
"""The tetherhost simulator for tests of host code, on its built-in chain or
a chain file, replaying a recording (``--replay``) or misbehaving on purpose
(``--faults``): every server a test needs is the simulator itself.

It runs as a process of its own and is ended by its process id. It is ready
once it has let go of the standard output it was started with: the
simulator points its standard streams at /dev/null once it listens (having
written its pid file), so a start waits on that pipe's end, not on a clock.
Its standard error goes to a file, where a replay writes its reports.
"""
import json
import os
import selectors
import signal
import subprocess
import time
from pathlib import Path
from typing import Dict, Optional, Sequence, Union

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


def _wait_until_released(process: subprocess.Popen, what: str) -> None:
    """Waits until the process lets go of its standard output pipe."""
    selector = selectors.DefaultSelector()
    selector.register(process.stdout, selectors.EVENT_READ)
    deadline = time.monotonic() + PATIENCE_SECONDS
    try:
        while True:
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                _end(process)
                raise ServerError(f"{what} did not come up within {PATIENCE_SECONDS:.0f} s")
            if selector.select(remaining) and not os.read(process.stdout.fileno(), 65536):
                return
    finally:
        selector.close()
        process.stdout.close()


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
    `trace`. `chain` is a chain file or the name of a shipped chain;
    `replay` a recording (TETHERHOST_RECORD) to serve instead of the model,
    with `replay_then_model` to let the model go on after it; `faults` the
    rules it misbehaves by (docs/faults.md): a file, or the rules document
    itself as a dict."""

    def __init__(self, directory: Path, port: int = SERVER_PORT, chain: Optional[str] = None,
                 replay: Optional[str] = None, replay_then_model: bool = False,
                 faults: Union[None, str, Dict[str, object]] = None, options: Sequence[str] = ()):
        self.port = port
        self.chain = chain
        self.trace = directory / f"simulator-{port}.trace"
        self.stderr = directory / f"simulator-{port}.stderr"
        pid_file = directory / f"simulator-{port}.pid"
        argv = [simulator_program(), "--port", str(port), "--pid-file", str(pid_file), "--trace", str(self.trace)]
        if replay is None:
            argv += ["--idle-exit", "0"]
        else:
            argv += ["--replay", str(replay)] + (["--replay-then-model"] if replay_then_model else [])
        if chain is not None:
            argv += ["--chain", chain]
        if isinstance(faults, dict):
            rules = directory / f"simulator-{port}-faults.json"
            rules.write_text(json.dumps(faults))
            faults = str(rules)
        if faults is not None:
            argv += ["--faults", str(faults)]
        argv += list(options)
        with open(self.stderr, "wb") as stderr:
            self._process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=stderr)
        _wait_until_released(self._process, "the tetherhost simulator")
        if not pid_file.exists():
            status = self._process.wait(timeout=PATIENCE_SECONDS)
            raise ServerError(f"the tetherhost simulator did not come up (status {status}): "
                              f"{self.stderr.read_text(errors='replace').strip()}")
        self.pid = self._process.pid

    def verdict(self) -> Dict[str, object]:
        """For a replay: waits for it to end (it ends once every recorded
        connection has been served) and says how it went: {"ok": True}, or
        {"ok": False, "report": ...} with the simulator's report of the first
        divergence."""
        try:
            status = self._process.wait(timeout=PATIENCE_SECONDS)
        except subprocess.TimeoutExpired:
            status = _end(self._process)
        if status == 0:
            return {"ok": True}
        return {"ok": False, "report": self.stderr.read_text(errors="replace").strip()}

    def stop(self) -> Optional[int]:
        """Ends the simulator by its id; its exit status."""
        return _end(self._process)
