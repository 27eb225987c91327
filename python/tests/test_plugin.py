# SPDX-License-Identifier: MIT
"""The pytest plugin's server: the simulator ended by its pid, serving a
recording that the module's session must match byte for byte (--replay),
or closing the connection at a chosen command (--faults)."""
import os

import pytest

import tetherhost

CONVERSATIONS = os.environ["TETHERHOST_CONVERSATIONS"]


def test_the_simulator_traces_the_session_and_runs_until_ended(tetherhost_server):
    with tetherhost.Session("traced") as s:
        assert s.send(38) == 0
    assert tetherhost_server.port == 4001
    os.kill(tetherhost_server.pid, 0)  # still running: it is ended after the test, by its pid
    assert "traced" in tetherhost_server.trace.read_text()


@pytest.mark.tetherhost(replay=os.path.join(CONVERSATIONS, "jtag-scan-session.jsonl"))
def test_a_session_matches_a_recorded_conversation_byte_for_byte(tetherhost_server):
    with tetherhost.Session("board1", application="app", version="user") as s:
        assert s.scan_dr(6, b"\x3f") == b"\x2a"
    assert tetherhost_server.verdict() == {"ok": True}


@pytest.mark.tetherhost(replay=os.path.join(CONVERSATIONS, "jtag-scan-session.jsonl"))
def test_a_replay_reports_where_the_session_departed(tetherhost_server):
    # The replay closes the connection at the first byte out of script: here
    # the name, which Connect then reports as a failed connection.
    with pytest.raises(tetherhost.Error) as refused:
        tetherhost.Session("board2", application="app", version="user")
    assert refused.value.status == -1001
    assert refused.value.operation == "connecting to the server"
    verdict = tetherhost_server.verdict()
    assert verdict["ok"] is False
    assert verdict["report"].splitlines()[0] == (
        'tetherhost: replay: connection 1, step 1 (line 2): the introduction (the client\'s name): '
        'expected "board1\\0", received "board2\\0"')


@pytest.mark.tetherhost(faults={"rules": [{"command": 38, "close": True}]})
def test_a_connection_dropped_mid_command_breaks_the_session(tetherhost_server, tmp_path):
    log = tmp_path / "dropped.log"
    with tetherhost.Session("dropped", log=str(log)) as s:
        assert s.send(1) == 0
        with pytest.raises(tetherhost.Error) as dropped:
            s.send(38)
        assert dropped.value.status == -1002
        assert dropped.value.from_server is False
        assert dropped.value.text == "no answer from the server, or its answer was not an acknowledgement"
        assert dropped.value.operation == "command 38"
        assert dropped.value.message == "1010"
        with pytest.raises(tetherhost.Error, match="the connection failed earlier"):
            s.send(1)
    # The simulator still serves other connections.
    with tetherhost.Session("after") as s:
        assert s.send(1) == 0
        assert ";clients=1;" in s.read_text()
