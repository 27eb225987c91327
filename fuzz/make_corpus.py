#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the seed corpora fuzz/corpus/<target>/ from the conversations below.

Each seed is an input in its target's layout (see the comment at the top of
each harness) that walks one whole exchange the way the library and the
server have it, so the fuzzer starts from every command family instead of
having to discover the framing. Run it again after changing an input layout;
files it does not write (inputs kept from fuzzing runs) are left alone.
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def write(target, name, data):
    folder = os.path.join(HERE, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as out:
        out.write(data)


def i32(value):
    return struct.pack("<i", value)


def u16(value):
    return struct.pack("<H", value)


def text(value, limit=48):
    data = value.encode()
    assert len(data) <= limit
    return bytes([len(data)]) + data


# ---------------------------------------------------------------- client_replies
ACK = b"+\0"
CONNECT, SEND, READ, GET_TDO, DISCONNECT, DIRECT, SENDER, LOCK, ONE_CALL = 0, 1, 3, 4, 5, 6, 7, 8, 9


def op(kind, args=b""):
    assert len(args) < 256
    return bytes([kind, len(args)]) + args


def bits_small(bits):
    """A bit count from -16 to 239."""
    return bytes([0, bits + 16])


def bits_any(bits):
    """A bit count from 0 to 40960."""
    return bytes([3]) + u16(bits)


def plain(ints=(), texts=(), null_texts=0):
    ints = list(ints) + [0] * (11 - len(ints))
    texts = list(texts) + [""] * (4 - len(texts))
    return b"".join(i32(v) for v in ints) + b"".join(text(t) for t in texts) + bytes([null_texts])


def send(command, args=b""):
    return op(SEND, bytes([command]) + args)


def records(*replies):
    out = b""
    for reply in replies:
        if reply == b"" or len(reply) < 255:
            out += bytes([len(reply)]) + reply
        else:
            assert len(reply) == 1024
            out += b"\xff" + reply
    return out


def client_input(ops, replies, logging=False):
    return bytes([1 if logging else 0, len(ops) - 1]) + b"".join(ops) + records(ACK, *replies)


def open_session():
    """Send(4, "alpha", "beta", 2, 11, 12) and Send(33), both locks granted."""
    ops = [send(4, plain(ints=[11, 12] + [0] * 8 + [2], texts=["alpha", "beta"])), send(33)]
    replies = [ACK] * 3 + [ACK] * 10 + [b"1\0"] + [ACK, b"1\0"]
    return ops, replies


def sub(number, ints=(), texts=()):
    """A JTAG-interface sub-command and its five ints and two texts."""
    ints = list(ints) + [0] * (5 - len(ints))
    texts = list(texts) + [""] * (2 - len(texts))
    return bytes([number + 4]) + b"".join(i32(v) for v in ints) + b"".join(text(t) for t in texts)


def jtag_shift(flags, bits_code, announce, seed=0x30, nulls=0):
    return i32(flags) + bits_code + bytes([announce, seed, nulls])


def client_replies():
    write("client_replies", "connect-read-int", client_input([op(READ, b"\x02")], [b"42\0"]))
    write("client_replies", "read-text-and-list",
          client_input([op(READ, b"\x00"), op(READ, b"\x01"), op(READ, b"\x03")],
                       [b"hello\0", b"x" * 1024, b"a;;b;\0"]))
    ops, replies = open_session()
    write("client_replies", "open-session-and-locks", client_input(ops, replies))
    write("client_replies", "lock-gate-poll", client_input([send(5, plain(ints=[7]))], [ACK]))
    write("client_replies", "guarded-int-command",
          client_input(ops + [send(5, plain(ints=[7]))], replies + [ACK, ACK, b"0\0"]))
    # Command 19, 16 bits with read-back: four tokens, the block, 2 bytes back.
    shift = i32(0) + bits_small(16) + bytes([1, 0x41])
    write("client_replies", "generic-shift-read-back",
          client_input(ops + [send(19, shift)], replies + [ACK] + [ACK] * 4 + [b"\xa5\x5a", b"7\0"]))
    # Command 44/12, 12 bits, second block, read-back of the single block.
    sub12 = bytes([12 + 4]) + jtag_shift(0, bits_small(12), 0x01)  # the shift's arguments follow the number
    write("client_replies", "jtag-shift-single",
          client_input(ops + [send(44, sub12)],
                       replies + [ACK, ACK] + [ACK] * 4 + [ACK, ACK, b"0\0", b"\x12\x34", b"0\0"]))
    # The JTAG shift called directly, 8200 bits (two chunks) with read-back.
    chunked = bytes([1]) + jtag_shift(0, bits_any(8200), 0x01)
    write("client_replies", "jtag-shift-chunked",
          client_input([op(DIRECT, chunked)],
                       [ACK] * 4 + [ACK, ACK, b"0\0", b"+" + b"\x11" * 1023, b"+\x22\x22"]))
    pump = bits_any(8200) + i32(3) + bytes([1, 0x50])
    write("client_replies", "pump-chunked-read-back",
          client_input([send(42, pump)], [ACK] + [ACK] * 3 + [ACK, ACK] + [b"+" + b"\x33" * 1023, b"+\x44\x44", b"0\0"]))
    sspi = i32(1) + bits_small(16) + i32(2) + bytes([0x10])
    write("client_replies", "sspi-write-and-read",
          client_input([send(50, sspi), send(52, sspi), send(51, sspi + sspi)],
                       [ACK] + [ACK] * 3 + [ACK, b"0\0"] + [ACK] + [ACK] * 3 + [b"\x01\x02", b"0\0"] +
                       [ACK] + [ACK] * 3 + [b"\x03\x04"] + [ACK] * 3 + [b"\x05\x06", b"0\0"]))
    i2c = i32(5) + i32(0x50) + bits_small(8) + i32(9) + bytes([0x01])
    write("client_replies", "i2c-write-and-read",
          client_input([send(46, i2c), send(48, i2c), send(47, i2c + i2c)],
                       [ACK] + [ACK] * 4 + [ACK, b"0\0"] + [ACK] + [ACK] * 4 + [b"\x01", b"0\0"] +
                       [ACK] + [ACK] * 4 + [b"\x02"] + [ACK] * 4 + [b"\x03", b"0\0"]))
    # Count 2 (3 % 6 - 1), then per name a selector byte and the name.
    apps = bytes([3]) + b"\0" + text("alpha") + b"\0" + text("beta")
    write("client_replies", "shared-apps", client_input([send(41, apps)], [ACK, b"-\0", b"2\0"]))
    subs = [send(44, sub(9)), send(44, sub(36, ints=[3])), send(44, sub(69, ints=[3])),
            send(44, sub(30, ints=[1, 2], texts=["t"])), send(44, sub(120, ints=[4])), send(44, sub(196))]
    write("client_replies", "jtag-interface-sub-commands",
          client_input(subs, [ACK, b"+", b"0\0", ACK, ACK, b"-", b"0\0", ACK, ACK, ACK, b"0\0",
                              ACK, ACK, b"-\0", ACK, ACK, b"0\0", ACK, ACK, ACK, b"0\0", ACK, ACK, b"0\0"]))
    one_call = i32(0) + bytes([0]) + bits_small(100) + bytes([4]) + u16(13) + u16(13) + u16(13)
    large = i32(0) + bytes([0]) + bits_any(16392) + bytes([3]) + u16(2049) + u16(0) + u16(0)
    write("client_replies", "one-call-shift",
          client_input([op(ONE_CALL, one_call), op(ONE_CALL, large)],
                       [ACK] * 7 + [ACK] * 4 + [ACK] * 6 + [ACK]))
    # The kind byte: the sender in its low two bits, count + 1 above them.
    senders = [op(SENDER, bytes([0 | 3 << 2]) + plain(texts=["a", "b"])),
               op(SENDER, bytes([1 | 3 << 2]) + plain(texts=["c", "d"], null_texts=2)),
               op(SENDER, bytes([2 | 4 << 2]) + plain(ints=[-5, 0, 7])),
               op(SENDER, bytes([3]) + plain(ints=[1, 2, 3, 4], texts=["h", "", "t", "x"]))]
    write("client_replies", "argument-senders",
          client_input(senders, [b"ok\0", ACK, ACK, b"+", ACK, ACK, b"-\0"] + [ACK] * 8))
    write("client_replies", "lock-answers",
          client_input([op(LOCK, b"\x00"), op(LOCK, b"\x01"), op(LOCK, b"\x00")], [b"1\0", b"0\0", b"123"]))
    write("client_replies", "disconnect", client_input([op(DISCONNECT)], [ACK, b"0\0"]))
    # The server closes instead of answering command 1; the client reconnects
    # and the new connection answers the introduction.
    write("client_replies", "reconnect-after-close",
          client_input([send(1), op(READ, b"\x02")], [b"", ACK, b"5\0"]))
    write("client_replies", "tdo-after-read-back",
          client_input(ops + [send(19, shift), op(GET_TDO, u16(24) + b"\x00"), op(GET_TDO, u16(24) + b"\x01")],
                       replies + [ACK] + [ACK] * 4 + [b"\xa5\x5a", b"7\0"]))
    write("client_replies", "logged-session",
          client_input(ops + [op(READ, b"\x00"), op(DISCONNECT)], replies + [b"text\0", ACK, b"0\0"], logging=True))


# ---------------------------------------------------------------- client_stream
def delivered(*replies):
    """The server's records with their delivery bytes: each reply is given
    alone (delivered whole), or as (reply, split, merge): split it after
    `split` bytes, and merge its last piece with the next reply's first."""
    out = b""
    for reply in replies:
        body, split, merge = reply if isinstance(reply, tuple) else (reply, 0, False)
        assert split < 128
        out += bytes([split << 1 | int(merge)]) + records(body)
    return out


def stream_input(ops, replies, logging=False):
    return bytes([1 if logging else 0, len(ops) - 1]) + b"".join(ops) + delivered(ACK, *replies)


def merged(reply):
    return (reply, 0, True)


def client_stream():
    # The integer reply arrives in two pieces: "4", then "2" and its NUL.
    write("client_stream", "read-int-split", stream_input([op(READ, b"\x02")], [(b"42\0", 1, False)]))
    # A full frame and a further reply in one piece: the rest waits.
    write("client_stream", "reply-beyond-the-frame",
          stream_input([op(READ, b"\x00"), op(READ, b"\x02")], [merged(b"x" * 1024), b"7\0"]))
    ops, replies = open_session()
    write("client_stream", "open-session-acks-merged",
          stream_input(ops, [merged(reply) for reply in replies[:-1]] + replies[-1:]))
    write("client_stream", "acks-cut-after-plus", stream_input(ops, [(reply, 1, False) for reply in replies]))
    # Command 44/12, 12 bits with read-back: the status and the read-back in one piece.
    sub12 = bytes([12 + 4]) + jtag_shift(0, bits_small(12), 0x01)
    write("client_stream", "jtag-shift-status-and-read-back",
          stream_input(ops + [send(44, sub12)],
                       replies + [ACK, ACK] + [ACK] * 4 + [ACK, ACK, merged(b"0\0"), b"\x12\x34", b"0\0"]))
    # 8200 bits directly: the status with the first chunk's start, its rest split.
    chunked = bytes([1]) + jtag_shift(0, bits_any(8200), 0x01)
    write("client_stream", "jtag-shift-chunked-merged",
          stream_input([op(DIRECT, chunked)],
                       [ACK] * 4 + [ACK, ACK, merged(b"0\0"), (b"+" + b"\x11" * 1023, 100, False), b"+\x22\x22"]))
    pump = bits_any(8200) + i32(3) + bytes([1, 0x50])
    write("client_stream", "pump-read-back-cut",
          stream_input([send(42, pump)],
                       [ACK] + [ACK] * 3 + [ACK, ACK] + [(b"+" + b"\x33" * 1023, 64, False), merged(b"+\x44\x44"),
                                                       b"0\0"]))
    write("client_stream", "lock-answer-with-more", stream_input([send(33), op(READ, b"\x02")],
                                                                 [ACK, merged(b"1\0"), b"5\0"]))
    write("client_stream", "reconnect-after-close",
          stream_input([send(1), op(READ, b"\x02")], [b"", ACK, b"5\0"]))


# ---------------------------------------------------------------- sim_session
def frame(token):
    return token.encode() + b"\0"


def frames(*tokens):
    return b"".join(frame(str(t)) for t in tokens)


def sim_session():
    intro = frame("simclient")
    session = frames(4, "alpha", "beta", 0, 0, 0, 1, 0, 0, 0, 1, 0, 0) + b"+\0" + frames(33) + b"+\0"
    write("sim_session", "introduction", intro)
    write("sim_session", "open-session-and-locks", intro + session + frames(9999) + b"+\0")
    write("sim_session", "status-report", intro + frames(1) + b"+\0" + b"+\0")
    # 44/12: 16 bits, TDI and expected blocks, go token, then the read-back.
    jtag = frames(44, 12, 0, 16, 1, 0) + b"\x12\x34\0" + b"\x00\x00\0" + b"+\0" + b"+\0"
    write("sim_session", "jtag-shift-single", intro + session + jtag)
    chunk = b"\x5a" * 1024
    jtag_chunked = frames(44, 12, 0, 8200, 0, 0) + chunk + chunk + b"+\0" + b"+\0"
    write("sim_session", "jtag-shift-chunked", intro + session + jtag_chunked)
    write("sim_session", "generic-shift", intro + session + frames(19, 0, 16, 2, 1) + b"\x0f\xf0" + b"+\0")
    write("sim_session", "pump-chunked", intro + frames(42, 8200, 0, 1) + chunk + b"\x01" + b"+\0" * 2 + b"+\0")
    write("sim_session", "sspi", intro + frames(50, 0, 16, 0) + b"\xab\xcd" + b"+\0" +
          frames(51, 0, 16, 0) + frames(0, 16, 0) + b"\x01\x02" + b"+\0")
    write("sim_session", "i2c", intro + frames(46, 0, 10, 16, 0) + b"\x80\x40" + b"+\0" +
          frames(48, 0, 10, 8, 0) + b"\x80" + b"+\0")
    write("sim_session", "shared-apps", intro + frames(41) + (b"alpha;beta;" + b"\0" * 1013) + b"+\0" +
          frames(43) + b"+\0" + b"+\0")
    write("sim_session", "sub-commands", intro + frames(44, 7) + b"+\0+\0" + frames(44, 36) + b"3.000000" + b"\0" * 1016 +
          b"+\0" + frames(44, 69, "3.000000") + b"+\0" + frames(44, 30, 1, "t", 2) + b"+\0")
    pad = lambda token: token.encode() + b"\0" * (1024 - len(token))
    one_call = pad("44") + pad("12") + pad("0") + pad("100") + (b"\x77" * 13 + b"\0" * 1011) + b"\0" * 2048
    write("sim_session", "one-call-shift", intro + one_call)
    write("sim_session", "lock-gate", intro + frames(5, 1) + b"+\0" + frames(8888))
    write("sim_session", "broken-frames", intro + b"4" * 1100)


# ---------------------------------------------------------------- frame_reader
def frame_reader():
    def reader_input(requests, stream):
        head = bytes([len(requests)]) + b"".join(bytes([request, piece]) for request, piece in requests)
        return head + stream
    take = lambda count: count * 2 - 1  # an odd request byte asks for `count` raw bytes
    write("frame_reader", "tokens", reader_input([(0, 1), (0, 3), (0, 64)], b"name\0" + b"44\0" + b"+\0"))
    write("frame_reader", "token-then-block",
          reader_input([(0, 2), (take(3), 1), (0, 5)], b"12\0" + b"\x01\x02\x00" + b"9999\0"))
    write("frame_reader", "fixed-frame", reader_input([(0xFF, 63), (0, 7)], b"44" + b"\0" * 1022 + b"x\0"))
    write("frame_reader", "overlong", reader_input([(0, 10)], b"a" * 1100))
    write("frame_reader", "short-stream", reader_input([(take(100), 1)], b"\x01" * 10))


# ---------------------------------------------------------------- message_output
def message_output():
    write("message_output", "template-placeholders", bytes([0]) + text("$$s: sent $$d", 255) + text("clientA") + i32(42))
    write("message_output", "template-dollars", bytes([0]) + text("$$$s $$x $ $$", 255) + text("A"))
    write("message_output", "template-negative", bytes([0]) + text("$$d$$d", 255) + i32(-5) + i32(-2147483648))
    write("message_output", "client-numbered", bytes([1, 0]) + u16(34) + text("client") + text("file") +
          text("client") + text("detail"))
    write("message_output", "client-unknown-id", bytes([1, 1]) + text("1003", 8))
    write("message_output", "utils-numbered", bytes([2]) + u16(61) + text("client") + text("-5"))


if __name__ == "__main__":
    client_replies()
    client_stream()
    sim_session()
    frame_reader()
    message_output()
