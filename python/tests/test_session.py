# SPDX-License-Identifier: MIT
"""The tetherhost module against the simulator (the tetherhost_server
fixture, on 127.0.0.1:4001 of a network namespace of its own): each call
family with the values the built-in chain and peripherals give, what an
Error carries, and the arguments that are refused before anything is sent."""
import os
import struct

import pytest

import tetherhost

IDCODES = [0x10A5C1FF, 0x23E171FF, 0x07B421FF]  # from the cable's TDI
SVF_FILES = os.environ["TETHERHOST_SVF_FILES"]


def little_endian(*words):
    return b"".join(struct.pack("<I", word) for word in words)


def test_the_first_program_reads_the_idcode_nearest_tdo(tetherhost_server):
    with tetherhost.Session("bench") as s:
        tdo = s.scan_dr(32, bytes(4))
    assert tdo == little_endian(IDCODES[2])


def test_a_session_holds_both_locks_until_its_with_block_ends(tetherhost_server):
    with tetherhost.Session("holder") as first:
        with pytest.raises(tetherhost.Error) as refused:
            tetherhost.Session("second")
        assert first.is_open
    assert not first.is_open
    assert refused.value.status == -1
    assert refused.value.from_server is False
    assert refused.value.text == "the server refused the lock (or the log file could not be opened)"
    assert refused.value.operation == "opening the session (command 4)"
    with tetherhost.Session("third") as third:
        assert third.send(38) == 0


def test_a_closed_session_refuses_calls(tetherhost_server):
    session = tetherhost.Session("closer")
    session.close()
    session.close()
    with pytest.raises(ValueError, match="the session is closed"):
        session.send(38)


def test_scans_read_idcodes_capture_and_bypass(tetherhost_server):
    with tetherhost.Session("scans") as s:
        assert s.jtag(3) == 0
        assert s.scan_dr(96, bytes(12)) == little_endian(IDCODES[2], IDCODES[1], IDCODES[0])
        # Each instruction register captures ...01: 8, 6 and 4 bits.
        captured = s.scan_ir(18, bytearray([0xFF, 0xFF, 0x03]))
        assert captured == bytes([0x01, 0x41, 0x00])
        tdi = bytes([0xA5, 0x3C, 0x0F, 0xF0])
        delayed = int.from_bytes(tdi, "little") << 3 & 0xFFFFFFFF
        assert s.scan_dr(32, memoryview(tdi)) == delayed.to_bytes(4, "little")


def test_a_compared_scan_counts_mismatched_bits(tetherhost_server):
    with tetherhost.Session("compare") as s:
        idcode = little_endian(IDCODES[2])
        checked = s.scan_dr(32, bytes(4), idcode, b"\xff" * 4)
        assert isinstance(checked, tetherhost.Checked)
        assert (checked.tdo, checked.mismatched_bits, checked.matched) == (idcode, 0, True)
        wrong = bytes([idcode[0] ^ 0x07]) + idcode[1:]
        checked = s.scan_dr(32, bytes(4), wrong, b"\xff" * 4)
        assert (checked.mismatched_bits, checked.matched) == (3, False)
        with pytest.raises(ValueError, match="both expected and mask"):
            s.scan_dr(32, bytes(4), idcode)


def test_the_chain_lists_every_device(tetherhost_server):
    with tetherhost.Session("chain") as s:
        devices = s.chain()
    assert [(d.name, d.ir_length, d.idcode) for d in devices] == [
        ("tap0", 4, IDCODES[0]),
        ("tap1", 6, IDCODES[1]),
        ("tap2", 8, IDCODES[2]),
    ]


@pytest.mark.tetherhost(chain="arty-a7")
def test_a_shipped_chain_is_what_the_server_runs(tetherhost_server):
    with tetherhost.Session("arty") as s:
        devices = s.chain()
        assert [(d.name, d.ir_length, d.idcode) for d in devices] == [("xc7a35t", 6, 0x0362D093)]
        assert s.scan_dr(32, bytes(4)) == little_endian(0x0362D093)
    assert tetherhost_server.chain == "arty-a7"


def test_sspi_i2c_and_pump_transfers(tetherhost_server):
    with tetherhost.Session("buses") as s:
        assert s.sspi_write(0x100, b"\x12\x34") == 0
        assert s.sspi_transfer(0x100, b"\xff\xff") == b"\x12\x34"
        assert s.i2c_write(0x50, 0x10, b"\xa5\x01") == 0
        assert s.i2c_transfer(0x50, 0x20, b"\x01\x12\x50") == b"\x01\x12\x50"
        assert s.pump(b"\x01\x02\x03\x04", 2) == 4
        assert s.pump_transfer(bytes(4), 1) == b"\x01\x02\x03\x04"
        with pytest.raises(tetherhost.Error) as refused:
            s.i2c_write(0x51, 0, b"\x01")
        assert refused.value.status == -3
        assert refused.value.from_server is True
        assert refused.value.text == "no I2C device answers that bus address"
        assert refused.value.operation == "command 46"
        assert s.send(38) == 0


def test_raw_commands_and_the_readers(tetherhost_server):
    with tetherhost.Session("raw") as s:
        assert s.send(1) == 0
        assert s.read_text().startswith("tetherhost simulator 1.0.0;clients=1;")
        assert s.send(41, "alpha", "beta") == 2
        assert s.send(43) == 2
        assert s.read_list() == ["alpha", "beta"]
        assert s.send(44, 8) == 0
        assert s.read_text() == "Test-Logic-Reset"
        assert s.read_int() == 0
        assert s.jtag(7) == 3
        assert len(s.read_list()) == 3
        assert s.send(19, 0, 32, 1, bytes(4)) == 0
        assert s.read_data(32) == little_endian(IDCODES[2])
        with pytest.raises(tetherhost.Error) as nothing:
            s.read_data(32)
        assert (nothing.value.status, nothing.value.text) == (-1022, "no scan return data to collect")


def test_arguments_that_do_not_fit_are_refused_before_sending(tetherhost_server):
    with tetherhost.Session("refusals") as s:
        with pytest.raises(TypeError, match="command 5: argument 1 is an int, not a text"):
            s.send(5, "5")
        with pytest.raises(TypeError, match="command 5 takes an int, not 0 arguments"):
            s.send(5)
        with pytest.raises(TypeError, match="argument 1 is a bool"):
            s.send(5, True)
        with pytest.raises(TypeError, match="argument 1 is a float"):
            s.send(5, 5.0)
        with pytest.raises(TypeError, match="belong to the Session"):
            s.send(33)
        with pytest.raises(TypeError, match="scanIr / scanDr"):
            s.jtag(12)
        with pytest.raises(ValueError, match="which an int does not hold"):
            s.send(5, 2**31)
        with pytest.raises(ValueError, match="takes 8"):
            s.send(19, 0, 64, 1, bytes(4))
        with pytest.raises(ValueError, match="which takes 5"):
            s.scan_dr(33, bytes(4))
        with pytest.raises(ValueError, match="at most 1023"):
            s.send(2, "a" * 1024)
        with pytest.raises(TypeError):
            s.scan_dr(32, "text")
        assert s.send(38) == 0


def test_an_error_names_the_last_message_when_the_session_keeps_a_log(tetherhost_server, tmp_path):
    log = tmp_path / "session.log"
    with tetherhost.Session("logged", log=str(log)) as s:
        with pytest.raises(tetherhost.Error) as refused:
            s.sspi_write(0xFFFF0, b"\x00")
    assert refused.value.status == -2
    assert refused.value.text == "an address, length or mode that the target does not have"
    assert refused.value.message == "1021"
    assert "logged: disconnected from the tetherhost server" in log.read_text()


def test_an_svf_file_plays_on_the_chain(tetherhost_server):
    with tetherhost.Session("svf") as s:
        report = s.play_svf(os.path.join(SVF_FILES, "gen-idcodes-default.svf"))
        assert report.outcome == "passed"
        assert report.scans > 0
        assert report.mismatches == []
        failing = s.play_svf(os.path.join(SVF_FILES, "fail-one.svf"))
        assert failing.outcome == "mismatched"
        assert [m.last_line for m in failing.mismatches] == [9]


def test_the_status_table_describes_every_code():
    assert tetherhost.describe(0) == "success"
    assert tetherhost.describe(-1001) == "could not send to the server"
    assert tetherhost.describe(4711) == "not a status code of the tetherhost library"
    assert tetherhost.describe_reply(-5) == "the scan is longer than the simulator handles"
    assert tetherhost.FORKED_COPY_EXIT_STATUS == 127
