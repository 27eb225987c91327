#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The Wireshark dissector's tests, one per run:

    dissector_tests.py TEST --dissector tetherhost.lua --bin BUILD/bin
        --tshark tshark --dumpcap dumpcap --corpus fuzz/corpus --work DIR

ctest registers each of them (tests/wireshark/CMakeLists.txt). The capturing
ones start the simulator on 127.0.0.1:4001 and must run in namespaces of
their own (tests/support/RunIsolated.sh); the others decode captures they
write themselves. Each prints what it checked and exits 1 on the first check
that does not hold."""
import argparse
import json
import os
import random
import shutil
import socket
import subprocess
import sys

from wiretest import (Capture, Crafted, Decoded, Failure, Simulator, check, check_equal, compare_with_trace,
                      items_of, read_trace, run)

FAMILIES = ["locks", "patterns", "jtag", "onecall", "pump", "sspi", "i2c", "readers", "apps", "generic"]
PLUS = "2b"  # the "+" a framed read-back chunk begins with, as hex


# ---------------------------------------------------------------- shared steps

def capture_sessions(options, name, clients):
    """Runs `clients()` against a fresh simulator while the loopback is
    captured; returns the capture's path, the trace's path and what
    `clients()` returned."""
    capture = Capture(options.dumpcap, os.path.join(options.work, name + ".pcap"))
    capture.start()
    simulator = Simulator(os.path.join(options.bin, "tetherhost"), os.path.join(options.work, name + ".trace"))
    try:
        output = clients()
    finally:
        simulator.stop()
        capture.stop()
    return capture.path, simulator.trace, output


def decode(options, capture, extra=()):
    decoded = Decoded(options.tshark, options.dissector, capture, extra)
    check_equal(decoded.lua_errors(), [], f"Lua errors decoding {capture}")
    return decoded


def connections(decoded):
    """Client name -> the items of its connection. Every connection begins
    with its introduction, every frame of it names the client, and every
    segment decodes into whole items (nothing waits for a later frame)."""
    result = {}
    for stream, frames in decoded.streams().items():
        items = items_of(frames)
        check(items and items[0].name == "name", f"stream {stream} does not begin with an introduction")
        name = items[0].get("client")
        check(name not in result, f"two connections of {name}")
        for frame in frames:
            check_equal(frame.pending, 0, f"bytes of frame {frame.number} left for a later frame")
            check_equal(frame.client or frame.items[0].get("client"), name, f"client name in frame {frame.number}")
        result[name] = items
    return result


def traced_connections(path):
    """Client name -> the simulator's trace of its connection."""
    result = {}
    for frames in read_trace(path).values():
        names = [text for _, _, item, text, _ in frames if item == "name"]
        result[names[0]] = frames
    return result


def check_against_trace(items_by_client, trace):
    traced = traced_connections(trace)
    check_equal(sorted(items_by_client), sorted(traced), "connections decoded and traced")
    for name, items in items_by_client.items():
        compare_with_trace(items, traced[name], f"connection {name}")


def check_no_problems(decoded):
    """Well-formed traffic: no expert info of warning or error severity."""
    check_equal(decoded.experts(), [], "expert infos of warning or error severity")


def exchanges(items):
    """The items of a connection cut at each command frame (and at the
    introduction): each exchange holds a command's frames, its reply
    requests and its replies."""
    result = []
    for item in items:
        if item.name in ("name", "command"):
            result.append([item])
        else:
            result[-1].append(item)
    return result


def data_of(items, names, block=None):
    """The data of the items named so (of one block), joined, as hex."""
    return "".join(item.data() for item in items
                   if item.name in names and (block is None or item.get("block") == block))


def read_backs(items):
    """The server's read-back data (the pump and the generic shift also
    have an integer argument of that name)."""
    return [item for item in items if item.name == "read-back" and item.side == "server"]


def framed(items):
    """Framed read-back chunks as the library keeps them: each with its "+"."""
    return "".join(PLUS + item.data() for item in read_backs(items))


def replies(exchange):
    return [item for item in exchange if item.name == "reply"]


def integers(exchange, names=("arg", "option")):
    return [int(item.get("integer")) for item in exchange if item.name in names]


def reverse_bits(hex_text):
    return bytes(int(f"{b:08b}"[::-1], 2) for b in bytes.fromhex(hex_text)).hex()


# ---------------------------------------------------------------- every command family

def check_step(step, exchange, name):
    """One Send of wireshark_sessions against the exchange decoded for it."""
    command = step["command"]
    where = f"{name}: Send({command}{', ' + str(step['sub']) if 'sub' in step else ''})"
    withheld = step["result"] == 1 and step["status"] == 1
    check_equal(int(exchange[0].get("command")), 8888 if withheld else command, where + ": command frame")
    if withheld:
        check_equal([item.name for item in exchange], ["command", "answer"], where + ": the poll's items")
        return
    if "sub" in step:
        subs = [int(item.get("subcommand")) for item in exchange if item.name == "sub-command"]
        check_equal(subs, [step["sub"]], where + ": sub-command")
    if command in (4, 33):
        locks = [item for item in exchange if item.name == "lock" and item.side == "server"]
        check_equal([item.get("lock.granted") for item in locks], ["1"], where + ": lock granted")
        check_equal(step["result"], 0, where + ": result")
        return
    answers = replies(exchange)
    check(answers, where + ": no reply")
    check_equal(int(answers[0].get("reply")), step["result"], where + ": integer reply")
    if "args" in step:
        check_equal(integers(exchange), step["args"], where + ": integer arguments")
    if "texts" in step:
        texts = [item.get("text") for item in exchange if item.name == "text"]
        check_equal(texts, step["texts"], where + ": text arguments")
    if "fraction" in step:
        fractions = [item.get("token") for item in exchange if item.name == "fraction"]
        check_equal(fractions, [step["fraction"]], where + ": fraction")
    if step.get("sub") == 12:
        check_jtag_shift(step, exchange, where)
    elif command == 42:
        check_equal(data_of(exchange, ("block", "chunk")), step["data"], where + ": pumped data")
        if step["readBack"]:
            returned = exchange_read_back(exchange, framed_chunks=True)
            check_equal(returned[:len(step["tdo"])], step["tdo"], where + ": read-back against GetTDO")
    elif command in (50, 51, 52):
        check_equal(data_of(exchange, ("block", "chunk")), step["data"], where + ": SSPI data")
        if command != 50:
            last = read_backs(exchange)
            # Command 51 reads twice; GetTDO has the second read-back.
            if command == 51:
                last = last[len(last) // 2:]
            check_equal("".join(item.data() for item in last), step["tdo"], where + ": read-back against GetTDO")
    elif command in (46, 47, 48):
        blocks = [item for item in exchange if item.name == "block"]
        check_equal([item.data() for item in blocks], [reverse_bits(step["data"])], where + ": data on the wire")
        check_equal([item.get("i2c.data").replace(":", "") for item in blocks], [step["data"]],
                    where + ": data with the bit order restored")
        devices = [item for item in exchange if item.name == "device"]
        check(all(item.get("i2c.bus_address") == "0x50" for item in devices), where + ": bus address")
        if command != 46:
            last = read_backs(exchange)[-1]
            check_equal(last.data(), step["tdo"], where + ": read-back against GetTDO")
    elif command == 19:
        check_equal(data_of(exchange, ("block", "chunk")), step["data"], where + ": shifted data")
        if step["readBack"]:
            returned = "".join(item.data() for item in read_backs(exchange))
            check_equal(returned[:len(step["tdo"])], step["tdo"], where + ": read-back against GetTDO")
    elif command == 41:
        block = [item for item in exchange if item.name == "block"][0]
        check_equal(block.all("app"), step["names"], where + ": application names")


def exchange_read_back(exchange, framed_chunks):
    backs = read_backs(exchange)
    if len(backs) == 1 and backs[0].get("chunk") is None:
        return backs[0].data()
    return framed(backs) if framed_chunks else "".join(item.data() for item in backs)


def check_jtag_shift(step, exchange, where):
    check_equal(integers(exchange, ("flags", "bits", "second", "third")),
                [step["flags"], step["bits"], step["second"], step["third"]], where + ": shift arguments")
    single = (step["bits"] + 7) // 8 <= 1024
    for block in ("tdi", "expected", "mask"):
        if block in step:
            names = (block,) if single else ("chunk",)
            check_equal(data_of(exchange, names, block), step[block], f"{where}: {block} block")
            lengths = {item.get("bits") for item in exchange if item.get("block") == block}
            check_equal(lengths, {str(step["bits"])}, f"{where}: bit count of the {block} block")
    statuses = [item.get("status") for item in exchange if item.name == "status"]
    check_equal(statuses, ["0"], where + ": status text")
    backs = read_backs(exchange)
    if "tdo" in step:
        returned = exchange_read_back(exchange, framed_chunks=True)
        if step["tdo"] is None:
            check_equal(returned, "", where + ": read-back of a shift without data")
        else:
            check_equal(returned[:len(step["tdo"])], step["tdo"], where + ": read-back against GetTDO")
    else:
        check_equal(backs, [], where + ": read-back where none was asked for")


def check_one_call(step, exchange, name):
    where = f"{name}: one-call shift of {step['bits']} bits"
    check_equal(step["result"], 0, where + ": result")
    check_equal([int(exchange[0].get("command"))], [44], where + ": command frame")
    check_equal(exchange[0].get("length"), "3", where + ": command token")
    check_equal([item.get("length") for item in exchange if item.name == "filler"], ["1021"], where + ": filler")
    fixed = [(item.name, item.get("token"), item.get("length")) for item in exchange
             if item.name in ("sub-command", "flags", "bits")]
    check_equal(fixed, [("sub-command", "12", "1024"), ("flags", str(step["flags"]), "1024"),
                        ("bits", str(step["bits"]), "1024")], where + ": fixed frames")
    if step["bits"] <= 16384:
        check_equal([item.name for item in exchange if item.name in ("tdi", "slot")], ["tdi", "slot", "slot"],
                    where + ": data slots")
        check_equal(exchange[[item.name for item in exchange].index("tdi")].data()[:len(step["tdi"])],
                    step["tdi"], where + ": first slot")
    else:
        chunks = -(-((step["bits"] + 7) // 8) // 1024)
        slots = [(item.get("block"), item.get("chunk")) for item in exchange if item.name in ("chunk", "slot")]
        copy = [str(i) for i in range(1, chunks + 1)]
        if step.get("zeroHead"):
            # Slot 2 is a copy whose first frame could have been a zero
            # frame; slot 3 a zero frame.
            later = [("slot 2", None)] + [("slot 2", i) for i in copy[1:]] + [("slot 3", None)]
        else:
            later = [(f"slot {n}", i) for n in (2, 3) for i in copy]
        check_equal(slots, [("tdi", i) for i in copy] + later, where + ": chunks of the three slots")


def every_command_family(options):
    def clients():
        return run([os.path.join(options.bin, "wireshark_sessions"), *FAMILIES], "wireshark_sessions")

    capture, trace, output = capture_sessions(options, "families", clients)
    manifest = {session["session"]: session["steps"] for session in map(json.loads, output.splitlines())}
    decoded = decode(options, capture)
    check_no_problems(decoded)
    by_client = connections(decoded)
    check_equal(sorted(by_client), sorted(FAMILIES), "connections")
    check_against_trace(by_client, trace)
    for name in FAMILIES:
        steps = manifest[name]
        parts = exchanges(by_client[name])
        check_equal(steps[0], {"call": "connect", "result": 0}, f"{name}: connect")
        check_equal(parts[0][0].get("client"), name, f"{name}: introduction")
        commands = [step for step in steps if step["call"] in ("send", "one-call", "disconnect")]
        check_equal(len(parts) - 1, len(commands), f"{name}: exchanges")
        texts = []
        for step, exchange in zip(commands, parts[1:]):
            if step["call"] == "send":
                check_step(step, exchange, name)
            elif step["call"] == "one-call":
                check_one_call(step, exchange, name)
            else:
                check_equal(int(exchange[0].get("command")), 9999, f"{name}: disconnect")
            texts += [(step, reply) for reply in replies(exchange)[1:]]
        reads = [step for step in steps if step["call"].startswith("read-")]
        check_equal(len(texts), len(reads), f"{name}: text replies")
        for read, (_, reply) in zip(reads, texts):
            if read["call"] == "read-text":
                check_equal(reply.get("reply.text") or "", read["text"], f"{name}: text reply")
            else:
                check_equal(reply.all("reply.field"), read["fields"], f"{name}: list reply")
    print(f"{len(decoded.frames)} frames: {len(FAMILIES)} connections decoded item for item as traced")


# ---------------------------------------------------------------- tetherctl

# tetherctl --name board1 shift dr 6 3F, frame by frame, as the Info column
# shows it (the exchange the user guide's wire-protocol page traces).
BOARD1_COLUMNS = (
    ['introduction "board1"', 'answer "+"', "command 4 (openSession)", '4: answer "+"', '4: text 1: "tetherctl"',
     '4: ack "+"', '4: text 2: "1.0.0"', '4: ack "+"']
    + [line for slot, value in enumerate([0, 0, 0, 1, 0, 0, 0, 1, 0, 0])
       for line in (f"4: option {slot}: {value}", '4: ack "+"')]
    + ["4: lock request (session lock)", '4: lock answer "1" (granted)', "command 33 (commandLock)",
       '33: answer "+"', "33: lock request (command lock)", '33: lock answer "1" (granted)',
       "command 44 (jtagInterface)", '44: answer "+"', "44: sub-command 12 (jtagShift)", '44/12: ack "+"',
       "44/12: flags 0 (DR scan)", '44/12: ack "+"', "44/12: bits 6", '44/12: ack "+"', "44/12: second 1",
       '44/12: ack "+"', "44/12: third 0", '44/12: ack "+"', "44/12: tdi block, 2 bytes", '44/12: answer "+"',
       "44/12: expected block, 2 bytes", '44/12: answer "+"', "44/12: go", '44/12: status "0"',
       "44/12: read-back, 1 byte", "44/12: reply request", '44/12: integer reply "0"']
    + [line for number, name in ((34, "releaseCommandLock"), (35, "releaseSessionLock"), (9999, "farewell"))
       for line in (f"command {number} ({name})", f'{number}: answer "+"', f"{number}: reply request",
                    f'{number}: integer reply "0"')])


def tetherctl_sessions(options):
    tetherctl = os.path.join(options.bin, "tetherctl")
    piece = bytes((i * 13 + 5) & 0xFF for i in range(3000))
    pumped = os.path.join(options.work, "pumped.bin")
    with open(pumped, "wb") as out:
        out.write(piece)
    runs = {
        "board1": ["shift", "dr", "6", "3F"],
        "chainer": ["chain"],
        "flash": ["sspi", "0x100", "DEADBEEF", "--erase"],
        "eeprom": ["i2c", "0x10", "0102A5"],
        "pumper": ["pump", pumped, "--verify", "--piece", "1024"],
        "apps": ["send", "41", "i:2", "s:alpha", "s:beta"],
        "status": ["send", "1", "--reply", "list"],
    }

    def clients():
        return {name: json.loads(run([tetherctl, "--json", "--name", name, *arguments], "tetherctl " + name))
                for name, arguments in runs.items()}

    capture, trace, results = capture_sessions(options, "tetherctl", clients)
    decoded = decode(options, capture)
    check_no_problems(decoded)
    by_client = connections(decoded)
    check_equal(sorted(by_client), sorted(runs), "connections")
    check_against_trace(by_client, trace)

    board1 = [frame.info for frame in decoded.frames if frame.items and frame.items[0] in by_client["board1"]]
    check_equal(board1, BOARD1_COLUMNS, "the Info column of tetherctl shift, frame by frame")
    shift = exchanges(by_client["board1"])[3]
    check_equal([item.data() for item in shift if item.name in ("tdi", "read-back")], ["3f", "3f"],
                "shift dr 6 3F: TDI and TDO")
    check_equal(results["board1"]["tdo"], "0x3F", "tetherctl's TDO")

    chain = read_backs(by_client["chainer"])[0].data()
    devices = results["chainer"]["devices"]
    idcodes = "".join(device["idcode"].to_bytes(4, "little").hex() for device in reversed(devices))
    check_equal(chain[:len(idcodes)], idcodes, "chain: the IDCODEs read back")

    flash = by_client["flash"]
    check(any(item.data() == "deadbeef" for item in flash if item.name == "block"), "sspi: DEADBEEF written")
    check_equal(read_backs(flash)[-1].data(),
                results["flash"]["data"].lower(), "sspi: the data read back")

    eeprom = by_client["eeprom"]
    check_equal([item.get("i2c.data").replace(":", "") for item in eeprom if item.name == "block"], ["0102a5"],
                "i2c: data with the bit order restored")
    check_equal(read_backs(eeprom)[-1].data(),
                results["eeprom"]["data"].lower(), "i2c: the data read back")

    pumper = by_client["pumper"]
    check_equal(data_of(pumper, ("block",)), piece.hex(), "pump: every byte of the file in the blocks")
    check_equal("".join(item.data() for item in read_backs(pumper)), piece.hex(),
                "pump --verify: every byte read back")

    apps = exchanges(by_client["apps"])[1]
    check_equal([item for item in apps if item.name == "block"][0].all("app"), ["alpha", "beta"],
                "send 41: application names")
    check_equal([item.get("reply") for item in replies(apps)], ["2"], "send 41: integer reply")

    # The fields filter as they decode: each count follows from what the
    # runs did (the chain's blocks are 1056 bits, 132 bytes and a zero byte).
    shift_frames = [line for line in BOARD1_COLUMNS if line.startswith(("44/12", "44: sub-command 12"))]
    filters = [('tetherhost.client == "board1"', len(BOARD1_COLUMNS)),
               ('tetherhost.client == "board1" && tetherhost.command == 44 && tetherhost.subcommand == 12',
                len(shift_frames)),
               ("tetherhost.status == 0", 2),
               ('tetherhost.client == "chainer" && tetherhost.length == 133', 2),
               ('tetherhost.client == "apps" && tetherhost.reply == 2', 1),
               # Every run but the plain sends takes both locks.
               ("tetherhost.lock.granted == 1", 2 * len([r for r in runs.values() if r[0] != "send"])),
               ('tetherhost.app == "beta"', 1)]
    for expression, count in filters:
        check_equal(len(decoded.filter(expression)), count, f"frames matching {expression}")

    status = exchanges(by_client["status"])[1]
    check_equal(replies(status)[1].all("reply.field"), results["status"]["reply"], "send 1 --reply list: fields")
    print(f"{len(decoded.frames)} frames: {len(runs)} tetherctl runs decoded as traced and as they reported")


# ---------------------------------------------------------------- 1 MiB

def one_mebibyte_shift(options):
    def clients():
        return run([os.path.join(options.bin, "wireshark_sessions"), "large"], "wireshark_sessions large")

    capture, trace, output = capture_sessions(options, "large", clients)
    step = [s for s in json.loads(output)["steps"] if s.get("sub") == 12][0]
    decoded = decode(options, capture)
    check_no_problems(decoded)
    by_client = connections(decoded)
    check_against_trace(by_client, trace)
    shift = [part for part in exchanges(by_client["large"]) if any(item.get("bits") == str(step["bits"])
                                                                   for item in part)][0]
    count = step["bits"] // 8 // 1024
    check_equal(count, 1024, "chunks of a 1 MiB block")
    infos = {frame.number: frame.info for frame in decoded.frames}
    for block in ("tdi", "expected"):
        chunks = [item for item in shift if item.name == "chunk" and item.get("block") == block]
        check_equal([(item.get("chunk"), item.get("chunk.count"), item.get("length")) for item in chunks],
                    [(str(i), str(count), "1024") for i in range(1, count + 1)], f"{block} chunks")
        check_equal([infos[item.frame] for item in chunks],
                    [f"44/12: {block} chunk {i} of {count}, 1024 bytes" for i in range(1, count + 1)],
                    f"the Info column of every {block} chunk")
    check_equal(shift[[item.name for item in shift].index("chunk")].data()[:128], step["tdiHead"],
                "the first chunk's data")
    backs = read_backs(shift)
    check_equal([(item.get("chunk"), item.get("chunk.count"), item.get("length")) for item in backs],
                [(str(i), str(count), "1024") for i in range(1, count + 1)], "read-back chunks")
    check_equal([infos[item.frame] for item in backs],
                [f"44/12: read-back chunk {i} of {count}, 1024 bytes" for i in range(1, count + 1)],
                "the Info column of every read-back chunk")
    after = [shift[index + 1].name for index, item in enumerate(shift)
             if item.name == "read-back" and item.side == "server"]
    check_equal(set(after), {"go"}, "a go token after every read-back chunk")
    check_equal(int(replies(shift)[0].get("reply")), step["result"], "the shift's integer reply")
    print(f"{len(decoded.frames)} frames: 1024 chunks of each block and of the read-back decoded")


# ---------------------------------------------------------------- crafted conversations

class Script:
    """A conversation item by item, as both sides send it."""

    def __init__(self):
        self.items = []

    def send(self, side, name, data):
        self.items.append((side, name, data))
        return self

    def token(self, side, name, text):
        return self.send(side, name, text.encode() + b"\0")

    def client(self, name, text):
        return self.token("client", name, text)

    def server(self, name, text="+"):
        return self.token("server", name, text)

    def integer(self, name, value):
        return self.client(name, str(value)).server("ack")

    def command(self, number, sub=None):
        self.client("command", str(number)).server("answer")
        if sub is not None:
            self.client("sub-command", str(sub)).server("ack")
        return self

    def reply(self, text):
        return self.client("request", "+").server("reply", text)

    def intro(self, name):
        return self.client("name", name).server("answer")

    def expected(self):
        return [(side, name, len(data)) for side, name, data in self.items]

    def segments(self, mode, rng=None):
        """The conversation cut into TCP segments: one per item, one per
        turn, one per byte, or at random places inside each turn."""
        turns = []
        for side, _, data in self.items:
            if turns and turns[-1][0] == side and mode != "item":
                turns[-1][1] += data
            else:
                turns.append([side, data])
        if mode in ("item", "turn"):
            return [(side, data) for side, data in turns]
        result = []
        for side, data in turns:
            cuts = range(1, len(data)) if mode == "byte" else sorted(rng.sample(range(1, len(data)), min(len(data) - 1, 3)))
            bounds = [0, *cuts, len(data)]
            result += [(side, data[a:b]) for a, b in zip(bounds, bounds[1:]) if b > a]
        return result


def jtag_script():
    s = Script().intro("crafted")
    s.command(4).token("client", "text", "host").server("ack").token("client", "text", "1.0").server("ack")
    for value in (0, 0, 0, 1, 0, 0, 0, 1, 0, 0):
        s.integer("option", value)
    s.client("lock", "+").server("lock", "1")
    s.command(33).client("lock", "+").server("lock", "1")
    # A single-block shift of 96 bits with read-back.
    s.command(44, 12)
    for name, value in (("flags", 0), ("bits", 96), ("second", 1), ("third", 0)):
        s.integer(name, value)
    s.send("client", "tdi", bytes(range(12)) + b"\0").server("answer")
    s.send("client", "expected", bytes(range(12, 24)) + b"\0").server("answer")
    s.client("go", "+").server("status", "0").send("server", "read-back", bytes(range(100, 112))).reply("0")
    # A chunked shift of 9000 bits: two padded chunks each way.
    s.command(44, 12)
    for name, value in (("flags", 1), ("bits", 9000), ("second", 1), ("third", 0)):
        s.integer(name, value)
    for block in (b"\x11", b"\x22"):
        s.send("client", "chunk", block * 1024).server("ack").send("client", "chunk", block * 1024).server("ack")
    s.client("go", "+").server("status", "0")
    s.send("server", "read-back", b"+" + b"\x33" * 1023).client("go", "+")
    s.send("server", "read-back", b"+" + b"\x44" * 102).client("go", "+").reply("0")
    # A shift the server refuses: a negative status, and nothing read back.
    s.command(44, 12)
    for name, value in (("flags", 0), ("bits", 8), ("second", 1), ("third", 0)):
        s.integer(name, value)
    s.send("client", "tdi", b"\x01\0").server("answer").send("client", "expected", b"\x01\0").server("answer")
    s.client("go", "+").server("status", "-5").reply("-5")
    # The one-call shift of 64 bits: fixed frames and three slots.
    s.send("client", "command", b"44\0").send("client", "filler", b"\0" * 1021).server("answer")
    for name, text in (("sub-command", "12"), ("flags", "0"), ("bits", "64")):
        s.send("client", name, text.encode() + b"\0" * (1024 - len(text))).server("ack")
    s.send("client", "tdi", b"\x55" * 8 + b"\0" * 1016).server("ack")
    s.send("client", "slot", b"\0" * 1024).server("ack").send("client", "slot", b"\0" * 1024).server("ack")
    # Pump data in two chunks without read-back; shared applications; the
    # status report with its text reply; farewell.
    s.command(42).integer("bits", 9000).integer("mode", 0).integer("read-back", 0)
    s.send("client", "chunk", b"\x66" * 1024).server("ack").send("client", "chunk", b"\x77" * 101).server("ack")
    s.server("ack")
    s.command(41).send("client", "block", b"alpha;beta;" + b"\0" * 1013).server("ack").reply("2")
    s.command(1).reply("0").reply("tetherhost simulator 1.0.0;clients=1;")
    s.command(9999).reply("0")
    return s


def flattened(decoded):
    """Each side's items in order (the two sides' order between each other
    depends on where a pipelined client's bytes were cut), and their shape."""
    items = items_of([frame for frame in decoded.frames if frame.items])
    items = [item for side in ("client", "server") for item in items if item.side == side]
    return [(item.side, item.name, int(item.get("length"))) for item in items], items


def per_side(shape):
    return [entry for side in ("client", "server") for entry in shape if entry[0] == side]


def split_segments(options):
    script = jtag_script()
    rng = random.Random(16)
    reference = None
    for mode in ("item", "turn", "byte", "random"):
        path = Crafted().connection(script.segments(mode, rng)).write(os.path.join(options.work, mode + ".pcap"))
        decoded = decode(options, path)
        check_no_problems(decoded)
        shape, items = flattened(decoded)
        check_equal(shape, per_side(script.expected()), f"items of the conversation cut per {mode}")
        fields = [{k: v for k, v in item.fields.items() if k != "tetherhost.from_frame"} for item in items]
        if reference is None:
            reference = fields
        else:
            check_equal(fields, reference, f"fields of the items cut per {mode}")
        statuses = [(item.get("status"), item.get("reply.name")) for item in items if item.name == "status"]
        check_equal(statuses, [("0", None), ("0", None), ("-5", "tooLong")], f"status texts cut per {mode}")
        notes = [message for item in items for severity, message in item.experts if severity == "Note"]
        check(any(message.startswith("Status -5 (tooLong): ") for message in notes),
              f"the refused shift's note cut per {mode}")
        if mode == "byte":
            spanning = [item for item in items if int(item.get("length")) > 1]
            check(all(item.all("from_frame") for item in spanning),
                  "every item of several one-byte segments names the frames it came from")
            two_pass = decode(options, path, ["-2"])
            _, again = flattened(two_pass)
            check_equal([item.fields for item in again], [item.fields for item in items],
                        "the second pass shows what the first found")
            check_equal([frame.info for frame in two_pass.frames], [frame.info for frame in decoded.frames],
                        "the second pass's Info column")
    print(f"{len(script.items)} items decoded alike whole, per turn, byte by byte and cut at random")


# ---------------------------------------------------------------- malformed traffic

def malformed(options):
    cases = []

    def case(name, script, expert, item):
        cases.append((name, script, expert, item))

    case("acknowledgement that is not +",
         Script().intro("bad").command(5).client("arg", "7").server("ack", "-"),
         ("Error", 'Acknowledgement "-": the client fails the call'), ("server", "ack"))
    case("token over 1023 bytes",
         Script().intro("long").send("client", "command", b"4" * 1100),
         ("Error", "No NUL within 1024 bytes: a token holds at most 1023"), ("client", "command"))
    case("name over 1023 bytes",
         Script().send("client", "name", b"n" * 1030 + b"\0"),
         ("Error", "No NUL within 1024 bytes: a token holds at most 1023"), ("client", "name"))
    case("non-numeric integer token",
         Script().intro("nan").command(5).client("arg", "7x").server("ack"),
         ("Error", 'The arg 1 token "7x" is not a decimal number'), ("client", "arg"))
    case("non-numeric command",
         Script().intro("nan").client("command", "abc").server("answer"),
         ("Error", 'The command "abc" is not a decimal number'), ("client", "command"))
    short_block = Script().intro("short").command(44, 12)
    for name, value in (("flags", 0), ("bits", 64), ("second", 0), ("third", 0)):
        short_block.integer(name, value)
    short_block.send("client", "tdi", b"\x01\x02\x03\x04").server("answer").client("go", "+").server("status", "0")
    case("block shorter than announced", short_block,
         ("Error", "tdi: 4 of the 9 bytes announced"), ("client", "tdi"))
    short_back = Script().intro("short").command(44, 12)
    for name, value in (("flags", 0), ("bits", 64), ("second", 1), ("third", 0)):
        short_back.integer(name, value)
    short_back.send("client", "tdi", b"\x01" * 9).server("answer").send("client", "expected", b"\x02" * 9)
    short_back.server("answer").client("go", "+").server("status", "0").send("server", "read-back", b"\x05" * 3)
    short_back.reply("0")
    case("read-back shorter than announced", short_back,
         ("Error", "read-back: 3 of the 8 bytes announced"), ("server", "read-back"))
    short_chunk = Script().intro("short").command(42).integer("bits", 9000).integer("mode", 0)
    short_chunk.integer("read-back", 0).send("client", "chunk", b"\x66" * 1024).server("ack")
    short_chunk.send("client", "chunk", b"\x77" * 50).server("ack").server("ack")
    case("chunk shorter than announced", short_chunk,
         ("Error", "chunk: 50 of the 101 bytes announced"), ("client", "chunk"))
    case("bytes out of turn",
         Script().intro("chatty").send("server", "out-of-turn", b"xyz").command(1).reply("0"),
         ("Warning", "Out of turn: 3 bytes from the server"), ("server", "out-of-turn"))
    bad_go = Script().intro("go").command(44, 12)
    for name, value in (("flags", 0), ("bits", 8), ("second", 0), ("third", 0)):
        bad_go.integer(name, value)
    bad_go.send("client", "tdi", b"\x01\0").server("answer").client("go", "-")
    case("go token that is not +", bad_go, ("Error", 'The go token is "-"'), ("client", "go"))
    bad_chunk = Script().intro("framed").command(42).integer("bits", 9000).integer("mode", 0)
    bad_chunk.integer("read-back", 1).send("client", "chunk", b"\x66" * 1024).server("ack")
    bad_chunk.send("client", "chunk", b"\x77" * 101).server("ack")
    bad_chunk.send("server", "read-back", b"x" * 1024).client("go", "+")
    case("read-back chunk without its +", bad_chunk,
         ("Error", 'Read-back chunk 1 begins with "x"'), ("server", "read-back"))
    case("reply that is not a number",
         Script().intro("words").command(38).reply("seven"),
         ("Warning", 'Reply "seven" is read as 0'), ("server", "reply"))
    mismatch = Script().intro("generic").command(19).integer("flags", 0).integer("bits", 16)
    mismatch.integer("bytes", 3).integer("read-back", 0)
    case("byte count that does not match the bit count", mismatch,
         ("Error", "3 bytes announced for 16 bits, which make 2"), ("client", "bytes"))

    crafted = Crafted()
    for index, (_, script, _, _) in enumerate(cases):
        crafted.connection(script.segments("turn"), client_port=41000 + index)
    decoded = decode(options, crafted.write(os.path.join(options.work, "malformed.pcap")))
    streams = decoded.streams()
    for index, (name, script, expert, (side, item_name)) in enumerate(cases):
        items = items_of(streams[index])
        flagged = [item for item in items if item.side == side and item.name == item_name and expert in item.experts]
        check(flagged, f"{name}: no item {item_name} from the {side} with {expert}; items: {items}")
    print(f"{len(cases)} kinds of malformed traffic each flagged on its item")


# ---------------------------------------------------------------- TCP

def retransmitted_and_missing(options):
    """A segment sent twice is decoded once, whether TCP holds the copy back
    (its default) or passes it on (its sequence analysis off); bytes the
    capture missed (in the middle, cut by the snap length, or the start of
    the connection) end the decoding of their connection, with expert info,
    instead of being decoded wrongly."""
    repeated = [("client", b"twice\0"), ("server", b"+\0"), ("client", b"1\0"), ("client", b"1\0", "again"),
                ("server", b"+\0"), ("client", b"+\0"), ("server", b"0\0")]
    missing = [("client", b"gap\0"), ("server", b"+\0"), ("client", b"1\0", "lost"), ("server", b"+\0"),
               ("client", b"+\0"), ("server", b"0\0")]
    cut = [("client", b"snap\0"), ("server", b"+\0"), ("client", b"1234\0", "cut"), ("server", b"+\0")]
    crafted = Crafted().connection(repeated, client_port=43000).connection(missing, client_port=43001)
    crafted.connection(cut, client_port=43002)
    # A capture begun after the introduction: the command frame would pass
    # for a client's name.
    crafted.connection([("client", b"1\0"), ("server", b"+\0"), ("client", b"+\0"), ("server", b"0\0")],
                       client_port=43003, handshake=False)
    path = crafted.write(os.path.join(options.work, "tcp.pcap"))
    decoded = decode(options, path)
    frames = [frame for frame in decoded.frames if frame.stream == 0 and frame.info and "Len=0" not in frame.info]
    check_equal([[item.name for item in frame.items] for frame in frames],
                [["name"], ["answer"], ["command"], [], ["answer"], ["request"], ["reply"]],
                "a segment sent twice, held back by TCP")
    passed_on = decode(options, path, ["-o", "tcp.analyze_sequence_numbers:FALSE"])
    frames = [frame for frame in passed_on.frames if frame.stream == 0 and frame.items]
    check_equal([[item.name for item in frame.items] for frame in frames],
                [["name"], ["answer"], ["command"], ["retransmission"], ["answer"], ["request"], ["reply"]],
                "a segment sent twice, passed on by TCP")
    check_equal(frames[3].items[0].experts, [("Note", "Bytes seen before in this direction")],
                "the retransmission's note")
    check_equal(frames[3].info, "retransmitted bytes", "the retransmission's Info column")
    gap = items_of(decoded.streams()[1])
    # The server's answer to the lost frame comes first, out of turn; the
    # client's next frame shows the gap.
    check_equal([item.name for item in gap], ["name", "answer", "out-of-turn", "undecoded", "undecoded"],
                "items of the connection with bytes missing")
    check(("Error", f"Not followed from here: 2 bytes missing from the capture before frame {gap[3].frame}")
          in gap[3].experts, f"the gap's expert info: {gap[3].experts}")
    snapped = items_of(decoded.streams()[2])
    check_equal([item.name for item in snapped], ["name", "answer", "undecoded", "undecoded"],
                "items of the connection with a frame cut by the capture")
    check(("Error", f"Not followed from here: frame {snapped[2].frame} cut short by the capture")
          in snapped[2].experts, f"the cut frame's expert info: {snapped[2].experts}")
    late = items_of(decoded.streams()[3])
    check_equal([item.name for item in late], ["undecoded"] * 4, "items of the connection captured from its middle")
    check(("Error", "Not followed from here: the capture begins inside the connection, after its start")
          in late[0].experts, f"the late capture's expert info: {late[0].experts}")
    print("a repeated segment decoded once; missing and cut bytes and a late start reported, "
          "the rest left undecoded")


# ---------------------------------------------------------------- fuzz corpora

def corpus_files(options):
    for folder in sorted(os.listdir(options.corpus)):
        for name in sorted(os.listdir(os.path.join(options.corpus, folder))):
            yield folder, name, os.path.join(options.corpus, folder, name)


def fuzz_corpora(options):
    rng = random.Random(4001)
    files = list(corpus_files(options))
    crafted = Crafted()
    port = 42000
    for _, _, path in files:
        with open(path, "rb") as source:
            data = source.read()
        pieces = []
        at = 0
        while at < len(data):
            step = rng.randint(1, 300)
            pieces.append(data[at:at + step])
            at += step
        shapes = [
            [("client", data)],
            [("client", b"fuzz\0"), ("server", data)],
            [item for piece in pieces for item in (("client", piece), ("server", b"+\0"))],
            [(rng.choice(("client", "server")), piece) for piece in pieces],
        ]
        for segments in shapes:
            crafted.connection([(side, chunk) for side, chunk in segments if chunk], client_port=port)
            port += 1
    decoded = decode(options, crafted.write(os.path.join(options.work, "corpora.pcap")))
    check_equal(len(decoded.streams()), 4 * len(files), "connections decoded")
    print(f"{len(files)} corpus files, each as client bytes, server bytes and interleaved, "
          f"{len(decoded.frames)} frames: no Lua error")


def simulator_answers_corpora(options):
    """The simulator's own answers to the sim_session corpus (whole client
    streams sent at once, some broken) decode as the simulator traced them."""
    folder = os.path.join(options.corpus, "sim_session")
    names = sorted(os.listdir(folder))

    def clients():
        for name in names:
            with open(os.path.join(folder, name), "rb") as source, \
                    socket.create_connection(("127.0.0.1", 4001)) as connection:
                connection.sendall(source.read())
                connection.shutdown(socket.SHUT_WR)
                while connection.recv(65536):
                    pass

    capture, trace, _ = capture_sessions(options, "corpus-answers", clients)
    decoded = decode(options, capture)
    streams = decoded.streams()
    check_equal(len(streams), len(names), "connections")
    traced = read_trace(trace)
    for (stream, frames), name in zip(sorted(streams.items()), names):
        items = items_of(frames)
        if name == "broken-frames":
            overlong = [item for item in items if any("No NUL within 1024 bytes" in (message or "")
                                                      for _, message in item.experts)]
            check_equal([item.name for item in overlong], ["command"], "broken-frames: the overlong token")
            continue
        check_equal([e for e in decoded.experts() if e[0] in {f.number for f in frames}], [],
                    f"{name}: expert infos")
        compare_with_trace(items, traced[stream + 1], f"corpus {name}")
    print(f"{len(names)} corpus sessions against the simulator decoded as traced")


# ---------------------------------------------------------------- Decode As

def decode_as(options):
    script = Script().intro("elsewhere").command(1).reply("0")
    crafted = Crafted().connection(script.segments("turn"), client_port=40100, server_port=5001)
    crafted.connection(script.segments("turn"), client_port=3000, server_port=4001)
    # A capture that begins with the server's answer: the first to speak
    # is not the client there.
    crafted.connection(script.segments("turn")[1:], client_port=40200, server_port=5001)
    path = crafted.write(os.path.join(options.work, "ports.pcap"))
    plain = decode(options, path)
    check_equal(sorted(plain.streams()), [1], "streams decoded without Decode As")
    assigned = decode(options, path, ["-d", "tcp.port==5001,tetherhost"])
    mid_stream = items_of(assigned.streams()[2], 5001)
    check_equal([(item.side, item.frame_side) for item in mid_stream][:2], [("server", "server"), ("client", "client")],
                "a capture begun with the server's answer: who sent the first two items")
    for stream, server_port in ((0, 5001), (1, 4001)):
        items = items_of(assigned.streams()[stream], server_port)
        check_equal([item.side for item in items], [item.frame_side for item in items],
                    f"stream {stream}: the sender of each item against its frame's ports (server port {server_port})")
        shape = [(item.side, item.name) for item in items]
        check_equal(per_side(shape), [(side, name) for side, name, _ in per_side(script.expected())],
                    f"stream {stream}: the items each side sent")
    print("a server on port 5001 decoded with Decode As; a client port below 4001 told apart")


# ---------------------------------------------------------------- installing

def personal_plugins_folder(options):
    """Copied into ~/.local/lib/wireshark/plugins, as docs/wireshark.md says,
    the dissector is loaded without -X."""
    home = os.path.join(options.work, "home")
    folder = os.path.join(home, ".local", "lib", "wireshark", "plugins")
    os.makedirs(folder, exist_ok=True)
    shutil.copy(options.dissector, folder)
    environment = dict(os.environ, HOME=home)
    plugins = run_in(environment, [options.tshark, "-G", "plugins"])
    check(os.path.join(folder, "tetherhost.lua") in plugins, "tshark -G plugins:\n" + plugins)
    script = Script().intro("plugin").command(1).reply("0")
    path = Crafted().connection(script.segments("turn")).write(os.path.join(options.work, "plugin.pcap"))
    decoded = Decoded(options.tshark, None, path, environment=environment)
    check_equal(decoded.lua_errors(), [], "Lua errors")
    shape = [(item.side, item.name, int(item.get("length"))) for item in items_of(decoded.streams()[0])]
    check_equal(per_side(shape), per_side(script.expected()), "items decoded by the plugin")
    print("loaded from " + folder)


def run_in(environment, command):
    result = subprocess.run(command, capture_output=True, text=True, env=environment)
    check(result.returncode == 0, f"{' '.join(command)} failed:\n{result.stderr}")
    return result.stdout


TESTS = {
    "EveryCommandFamilyDecodesAsTheSimulatorTracedIt": every_command_family,
    "TetherctlSessionsDecodeWithTheirNamesCommandsAndResults": tetherctl_sessions,
    "OneMebibyteShiftDecodesEveryChunk": one_mebibyte_shift,
    "ItemsSplitAcrossSegmentsAreReassembled": split_segments,
    "MalformedTrafficRaisesExpertInfo": malformed,
    "FuzzCorporaDecodeWithoutLuaErrors": fuzz_corpora,
    "RetransmittedAndMissingBytesAreReported": retransmitted_and_missing,
    "SimulatorAnswersToTheFuzzCorporaDecodeAsTraced": simulator_answers_corpora,
    "DecodeAsFollowsAnotherPort": decode_as,
    "LoadsFromThePersonalPluginsFolder": personal_plugins_folder,
}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("test", choices=sorted(TESTS))
    for option in ("dissector", "bin", "tshark", "dumpcap", "corpus", "work"):
        parser.add_argument("--" + option, required=True)
    options = parser.parse_args()
    os.makedirs(options.work, exist_ok=True)
    try:
        TESTS[options.test](options)
    except Failure as failure:
        print(f"{options.test}: {failure}")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
