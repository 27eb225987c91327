# SPDX-License-Identifier: MIT
"""The tetherhost pytest plugin: the fixture ``tetherhost_server``.

The fixture starts the tetherhost simulator on 127.0.0.1:4001, where a
Session looks for one, and ends it by its process id when the test is over.
A test chooses what it serves with the ``tetherhost`` mark::

    def test_idcodes(tetherhost_server):                 # the built-in chain
        ...

    @pytest.mark.tetherhost(chain="arty-a7")             # a chain file or a shipped chain
    def test_arty(tetherhost_server): ...

    @pytest.mark.tetherhost(replay="session.jsonl")      # a recording, served again
    def test_recorded(tetherhost_server):
        ...
        assert tetherhost_server.verdict() == {"ok": True}

    @pytest.mark.tetherhost(faults={"rules": [{"command": 38, "close": True}]})
    def test_server_gone(tetherhost_server): ...          # misbehaving on purpose (docs/faults.md)

``replay_then_model=True`` lets the model go on after the recording. The
fixture's value is the server: ``pid``, ``port``, ``trace`` (the simulator's
frame-by-frame trace file), and ``verdict()`` for a replay. Port 4001 is
fixed, so tests that use the fixture should run where nothing else listens
there (a network namespace of their own). Installed with the module, the
plugin is found by pytest through its entry point; otherwise load it with
``-p tetherhost.pytest_plugin``.
"""
import pytest

from .servers import SERVER_PORT, Simulator


def pytest_configure(config):
    config.addinivalue_line(
        "markers",
        "tetherhost(chain=None, replay=None, replay_then_model=False, faults=None, port=4001): what the "
        "simulator the tetherhost_server fixture starts serves: a chain file or shipped chain, a recording "
        "to replay, fault rules (a file or a dict, docs/faults.md).",
    )


@pytest.fixture
def tetherhost_server(request, tmp_path):
    """The tetherhost simulator on 127.0.0.1:4001 for this test, as the
    test's ``tetherhost`` mark asks (the built-in chain without one), ended
    by its process id afterwards."""
    marker = request.node.get_closest_marker("tetherhost")
    options = dict(marker.kwargs) if marker is not None else {}
    known = {"port", "chain", "replay", "replay_then_model", "faults"}
    if set(options) - known:
        raise pytest.UsageError(f"tetherhost mark: unknown options {sorted(set(options) - known)}")
    server = Simulator(tmp_path, port=options.get("port", SERVER_PORT), chain=options.get("chain"),
                       replay=options.get("replay"), replay_then_model=options.get("replay_then_model", False),
                       faults=options.get("faults"))
    try:
        yield server
    finally:
        server.stop()
