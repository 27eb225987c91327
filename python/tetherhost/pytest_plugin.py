"""The tetherhost pytest plugin: the fixture ``tetherhost_server``.

The fixture starts a server on 127.0.0.1:4001, where a Session looks for
one, and ends it by its process id when the test is over. A test chooses
the server with the ``tetherhost`` mark::

    def test_idcodes(tetherhost_server):                 # the built-in chain
        ...

    @pytest.mark.tetherhost(chain="arty-a7")             # a chain file or a shipped chain
    def test_arty(tetherhost_server): ...

    @pytest.mark.tetherhost(replay="session.jsonl")      # a recorded conversation, played
    def test_recorded(tetherhost_server):
        ...
        assert tetherhost_server.verdict() == {"ok": True}

    @pytest.mark.tetherhost(faults={"close_on": b"38\\0"})   # the connection dies at that frame
    def test_server_gone(tetherhost_server): ...

The fixture's value is the server: ``pid`` and ``port`` for all of them,
``trace`` (the simulator's frame-by-frame trace file) for the simulator,
``verdict()`` for a replay, ``upstream`` (the simulator behind it) for the
fault proxy. Port 4001 is fixed, so tests that use the fixture should run
where nothing else listens there (a network namespace of their own).
Installed with the module, the plugin is found by pytest through its entry
point; otherwise load it with ``-p tetherhost.pytest_plugin``.
"""
import pytest

from .servers import SERVER_PORT, FaultProxy, Replay, Simulator


def pytest_configure(config):
    config.addinivalue_line(
        "markers",
        "tetherhost(chain=None, replay=None, faults=None, port=4001): the server the tetherhost_server "
        "fixture starts: the simulator (on a chain file or shipped chain), a replay of a recorded "
        "conversation, or the simulator behind a fault proxy (faults={'close_on': FRAME}).",
    )


@pytest.fixture
def tetherhost_server(request, tmp_path):
    """A tetherhost server on 127.0.0.1:4001 for this test, chosen by the
    test's ``tetherhost`` mark (the simulator on its built-in chain without
    one), ended by its process id afterwards."""
    marker = request.node.get_closest_marker("tetherhost")
    options = dict(marker.kwargs) if marker is not None else {}
    port = options.pop("port", SERVER_PORT)
    chain = options.pop("chain", None)
    replay = options.pop("replay", None)
    faults = options.pop("faults", None)
    if options:
        raise pytest.UsageError(f"tetherhost mark: unknown options {sorted(options)}")
    if replay is not None and (chain is not None or faults is not None):
        raise pytest.UsageError("tetherhost mark: a replay takes neither a chain nor faults")
    if replay is not None:
        server = Replay(tmp_path, str(replay), port)
    elif faults is not None:
        unknown = set(faults) - {"close_on"}
        if unknown or "close_on" not in faults:
            raise pytest.UsageError("tetherhost mark: faults takes close_on, the frame at which to close")
        server = FaultProxy(tmp_path, bytes(faults["close_on"]), port, chain=chain)
    else:
        server = Simulator(tmp_path, port, chain)
    try:
        yield server
    finally:
        server.stop()
