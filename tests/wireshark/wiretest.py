# SPDX-License-Identifier: MIT
"""Helpers of the dissector's tests: capturing the loopback with dumpcap,
running the simulator, writing captures of crafted traffic, running tshark
with the dissector and reading back what it decoded, and reading the
simulator's trace."""
import json
import os
import re
import socket
import struct
import subprocess
import threading

PCAP_HEADER = struct.Struct("<IHHiIII")
RECORD_HEADER = struct.Struct("<IIII")
LINKTYPE_ETHERNET = 1
SERVER_PORT = 4001
# The marker datagrams go to the discard port; nothing needs to listen.
MARKER_PORT = 9
# tshark's JSON gives an expert's severity as Wireshark's number for it.
SEVERITIES = {"8388608": "Error", "6291456": "Warning", "4194304": "Note", "2097152": "Chat"}


class Failure(Exception):
    """A check that did not hold; the message says which and why."""


def check(condition, message):
    if not condition:
        raise Failure(message)


def check_equal(actual, expected, what):
    if actual != expected:
        raise Failure(f"{what}:\n  expected {expected!r}\n  actual   {actual!r}")


# ---------------------------------------------------------------- capturing

class Capture:
    """dumpcap on the loopback, writing pcap to a pipe that a thread of ours
    reads as it comes (so dumpcap never waits for us and drops nothing).
    start() returns once a marker datagram, sent after dumpcap said it was
    capturing, has come through the capture; stop() once a second one has.
    Every packet in between is kept: nothing is waited for by time."""

    def __init__(self, dumpcap, path):
        self.dumpcap = dumpcap
        self.path = path
        self.records = []
        self.seen = {}
        self.condition = threading.Condition()
        self.process = None
        self.header = b""
        self.markers = 0

    def start(self):
        self.process = subprocess.Popen([self.dumpcap, "-i", "lo", "-P", "-B", "64", "-w", "-"],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        while True:
            line = self.process.stderr.readline()
            check(line != b"", "dumpcap ended before capturing")
            if line.startswith(b"Capturing on"):
                break
        self.header = self._read(PCAP_HEADER.size)
        check(len(self.header) == PCAP_HEADER.size, "dumpcap wrote no pcap header")
        check(PCAP_HEADER.unpack(self.header)[6] == LINKTYPE_ETHERNET, "the loopback is not captured as Ethernet")
        threading.Thread(target=self._reader, daemon=True).start()
        self._marker()
        self.records.clear()

    def stop(self):
        self._marker()
        self.process.terminate()
        _, errors = self.process.communicate()
        counts = re.search(rb"Packets received/dropped on interface '[^']*': (\d+)/(\d+)", errors)
        check(counts is not None and counts.group(2) == b"0", "dumpcap dropped packets: " + errors.decode())
        with open(self.path, "wb") as out:
            out.write(self.header)
            for record in self.records:
                out.write(record)

    def _read(self, count):
        data = b""
        while len(data) < count:
            piece = self.process.stdout.read(count - len(data))
            if not piece:
                break
            data += piece
        return data

    def _reader(self):
        while True:
            head = self._read(RECORD_HEADER.size)
            if len(head) < RECORD_HEADER.size:
                break
            length = RECORD_HEADER.unpack(head)[2]
            body = self._read(length)
            marker = re.search(rb"tetherhost-capture-marker-(\d+)", body)
            with self.condition:
                if marker:
                    self.seen[int(marker.group(1))] = True
                    self.condition.notify_all()
                else:
                    self.records.append(head + body)

    def _marker(self):
        self.markers += 1
        number = self.markers
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.sendto(b"tetherhost-capture-marker-%d" % number, ("127.0.0.1", MARKER_PORT))
        with self.condition:
            self.condition.wait_for(lambda: number in self.seen)


class Simulator:
    """The simulator on 127.0.0.1:4001 with a trace file. It closes its
    standard output once it listens, so the end of that pipe is the moment
    it can be connected to."""

    def __init__(self, binary, trace):
        self.trace = trace
        self.process = subprocess.Popen([binary, "--idle-exit", "0", "--trace", trace],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.process.stdout.read()
        check(self.process.poll() is None,
              "the simulator ended at once: " + self.process.stderr.read().decode(errors="replace"))

    def stop(self):
        self.process.terminate()
        self.process.wait()


def run(command, what):
    result = subprocess.run(command, capture_output=True, text=True)
    check(result.returncode == 0,
          f"{what} failed with {result.returncode}:\n{result.stdout}\n{result.stderr}")
    return result.stdout


# ---------------------------------------------------------------- crafted captures

def _checksum(header):
    total = sum(struct.unpack("!%dH" % (len(header) // 2), header))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


class Crafted:
    """A pcap of TCP connections written byte by byte: each connection
    opens with its handshake, then carries the segments given, in order."""

    def __init__(self):
        self.records = []
        self.time = 0

    def _packet(self, source, destination, seq, ack, flags, payload, cut=0):
        tcp = struct.pack("!HHIIBBHHH", source, destination, seq, ack, 5 << 4, flags, 65535, 0, 0)
        total = 20 + len(tcp) + len(payload)
        ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, total, 0, 0x4000, 64, 6, 0,
                         socket.inet_aton("127.0.0.1"), socket.inet_aton("127.0.0.1"))
        ip = ip[:10] + struct.pack("!H", _checksum(ip)) + ip[12:]
        frame = b"\0" * 12 + b"\x08\x00" + ip + tcp + payload
        self.time += 1
        kept = len(frame) - cut
        self.records.append(RECORD_HEADER.pack(self.time // 1000000, self.time % 1000000, kept, len(frame))
                            + frame[:kept])

    def connection(self, segments, client_port=40000, server_port=SERVER_PORT, handshake=True):
        """`segments`: (side, bytes) pairs, side "client" or "server", or
        (side, bytes, "lost"): a segment the capture missed, (side, bytes,
        "again"): the side's previous segment sent once more, or (side,
        bytes, "cut"): a segment of which the capture kept half. Without
        `handshake` the capture begins after the connection's start."""
        seq = {"client": 1000, "server": 5000}
        ports = {"client": (client_port, server_port), "server": (server_port, client_port)}
        syn, ack_flag, psh = 0x02, 0x10, 0x08
        if handshake:
            self._packet(client_port, server_port, seq["client"] - 1, 0, syn, b"")
            self._packet(server_port, client_port, seq["server"] - 1, seq["client"], syn | ack_flag, b"")
            self._packet(client_port, server_port, seq["client"], seq["server"], ack_flag, b"")
        for side, payload, *how in segments:
            other = "server" if side == "client" else "client"
            if how == ["again"]:
                self._packet(*ports[side], seq[side] - len(payload), seq[other], psh | ack_flag, payload)
                continue
            if how != ["lost"]:
                cut = len(payload) // 2 if how == ["cut"] else 0
                self._packet(*ports[side], seq[side], seq[other], psh | ack_flag, payload, cut)
            seq[side] += len(payload)
        return self

    def write(self, path):
        with open(path, "wb") as out:
            out.write(PCAP_HEADER.pack(0xA1B2C3D4, 2, 4, 0, 0, 262144, LINKTYPE_ETHERNET))
            for record in self.records:
                out.write(record)
        return path


# ---------------------------------------------------------------- tshark

class Item:
    """One item the dissector decoded: its name and its fields, each a list
    of values as tshark's JSON gives them."""

    def __init__(self, name, tree, frame):
        self.name = name
        self.frame = frame
        self.fields = {}
        self.experts = []
        self._collect(tree or {})

    def _collect(self, tree):
        for key, value in tree.items():
            values = value if isinstance(value, list) else [value]
            if key == "_ws.expert":
                for expert in values:
                    severity = SEVERITIES.get(expert.get("_ws.expert.severity"), expert.get("_ws.expert.severity"))
                    self.experts.append((severity, expert.get("_ws.expert.message")))
            elif key.endswith("_tree"):
                for subtree in values:
                    self._collect(subtree)
            else:
                self.fields.setdefault(key, []).extend(values)

    def get(self, field):
        """The field's single value, or None."""
        values = self.fields.get("tetherhost." + field, [])
        check(len(values) <= 1, f"item {self.name} in frame {self.frame} has {len(values)} values of {field}")
        return values[0] if values else None

    def all(self, field):
        return self.fields.get("tetherhost." + field, [])

    def data(self):
        """The item's data bytes, as hex without separators."""
        return (self.get("data") or "").replace(":", "")

    def __repr__(self):
        return f"<{self.name} frame {self.frame} {self.fields}>"


class Frame:
    def __init__(self, number, stream, source_port, info, lua_error, tree):
        self.number = number
        self.stream = stream
        self.source_port = source_port
        self.info = info
        self.lua_error = lua_error
        self.items = []
        self.client = None
        self.pending = 0
        self.root_experts = []
        if tree is not None:
            names = tree.get("tetherhost.item", [])
            subtrees = tree.get("tetherhost.item_tree", [])
            names = names if isinstance(names, list) else [names]
            subtrees = subtrees if isinstance(subtrees, list) else [subtrees]
            check(len(names) == len(subtrees), f"frame {number}: items and their trees do not pair")
            self.items = [Item(name, subtree, number) for name, subtree in zip(names, subtrees)]
            client = tree.get("tetherhost.client")
            self.client = client[0] if isinstance(client, list) else client
            self.pending = int(tree.get("tetherhost.pending", 0))


class Decoded:
    """What tshark with the dissector makes of a capture. Without
    `dissector` tshark finds it on its own, in the plugin folders of the
    `environment`'s HOME."""

    def __init__(self, tshark, dissector, capture, extra=(), environment=None):
        self.capture = capture
        self.environment = environment
        script = ["-X", "lua_script:" + dissector] if dissector else []
        self.base = base = [tshark, *script, "-r", capture, *extra]
        columns = self._run(base + ["-T", "fields", "-E", "separator=/t", "-E", "occurrence=f",
                                    "-e", "frame.number", "-e", "tcp.stream", "-e", "tcp.srcport",
                                    "-e", "_ws.lua.error", "-e", "_ws.col.Info"])
        trees = {}
        for packet in json.loads(self._run(base + ["-T", "json", "--no-duplicate-keys", "-J", "frame tetherhost"])):
            layers = packet["_source"]["layers"]
            trees[int(layers["frame"]["frame.number"])] = layers.get("tetherhost")
        self.frames = []
        for line in columns.splitlines():
            number, stream, source_port, lua_error, info = (line.split("\t") + [""] * 5)[:5]
            number = int(number)
            self.frames.append(Frame(number, int(stream) if stream else None,
                                     int(source_port) if source_port else None, info, lua_error,
                                     trees.get(number)))

    def _run(self, command):
        result = subprocess.run(command, capture_output=True, text=True, env=self.environment)
        errors = [line for line in result.stderr.splitlines() if "dangerous" not in line]
        check(result.returncode == 0 and not errors,
              f"{' '.join(command)} failed with {result.returncode}:\n" + "\n".join(errors))
        return result.stdout

    def filter(self, expression):
        """The numbers of the frames that tshark's display filter selects."""
        output = self._run(self.base + ["-Y", expression, "-T", "fields", "-e", "frame.number"])
        return [int(line) for line in output.split()]

    def lua_errors(self):
        return [f"frame {frame.number}: {frame.info}" for frame in self.frames if frame.lua_error]

    def streams(self):
        """Stream number -> the frames of that stream that carry items."""
        result = {}
        for frame in self.frames:
            if frame.items or frame.pending:
                result.setdefault(frame.stream, []).append(frame)
        return result

    def experts(self, severities=("Error", "Warning")):
        return [(frame.number, item.name, severity, message)
                for frame in self.frames for item in frame.items for severity, message in item.experts
                if severity in severities]


def items_of(frames, server_port=SERVER_PORT):
    """The items of a stream in order, each with the side that sent it as
    the dissector says, which must be the side that sent the frame unless
    the item was decoded in a frame of the other side."""
    result = []
    for frame in frames:
        frame_side = "server" if frame.source_port == server_port else "client"
        for item in frame.items:
            item.side = item.get("sender")
            check(item.side in ("client", "server"), f"frame {frame.number}: item {item.name} without its sender")
            item.frame_side = frame_side
            result.append(item)
    return result


# ---------------------------------------------------------------- the simulator's trace

TRACE_LINE = re.compile(r'^\S+ c(\d+) (\S+) ([<>]) (\S+) (\S+)(?: "((?:[^"\\]|\\.)*)")? (\d+)$')


def read_trace(path):
    """Connection number -> its frames: (side, label, item, text or None,
    length), in the order the simulator traced them."""
    connections = {}
    with open(path, encoding="utf-8", errors="replace") as trace:
        for line in trace:
            match = TRACE_LINE.match(line.rstrip("\n"))
            if not match:
                continue
            connection, _, direction, label, item, text, length = match.groups()
            side = "client" if direction == "<" else "server"
            connections.setdefault(int(connection), []).append((side, label, item, text, int(length)))
    return connections


def trace_escape(text):
    """A text as the trace shows it: quotes and backslashes escaped, cut
    after 64 characters."""
    shown = text[:64].replace("\\", "\\\\").replace('"', '\\"')
    return shown + ("..." if len(text) > 64 else "")


def normalise_trace(frames):
    """The trace's frames as the dissector shows the same bytes: the empty
    sub-command token that begins a fixed "44" frame's filler is part of the
    filler; "44/-" (a one-call shift before its sub-command frame is read)
    is command 44, except for the acknowledgement of that frame, which the
    dissector shows under the sub-command it acknowledges (the one-call
    shift goes on only after sub-command 12)."""
    result = []
    for side, label, item, text, length in frames:
        if label.endswith("/-"):
            label = label[:-2] + ("/12" if item == "ack" else "")
        if item == "filler" and result and result[-1][2] == "sub-command" and result[-1][3] == "":
            result.pop()
            length += 1
        result.append((side, label, item, text, length))
    return result


def label_of(item):
    """The command being served as the trace names it: a command frame
    and a sub-command frame are traced under their command."""
    command, sub = item.get("command"), item.get("subcommand")
    if item.name in ("command", "sub-command"):
        return command
    if command is None:
        return "-"
    return f"{command}/{sub}" if sub is not None else command


def compare_with_trace(items, traced, what):
    """Each side's items against the simulator's frames of that side, one by
    one: the item, the command being served, the text and the length."""
    traced = normalise_trace(traced)
    for side in ("client", "server"):
        mine = [item for item in items if item.side == side]
        theirs = [frame for frame in traced if frame[0] == side]
        for index, (item, frame) in enumerate(zip(mine, theirs)):
            _, label, name, text, length = frame
            where = f"{what}, {side} item {index + 1} (frame {item.frame})"
            check_equal(item.name, name, where + ": item")
            check_equal(label_of(item), label, where + ": command")
            check_equal(int(item.get("length")), length, where + ": length")
            if text is not None:
                check_equal(trace_escape(item.get("token") or ""), text, where + ": text")
        check_equal(len(mine), len(theirs), f"{what}: {side} items")
