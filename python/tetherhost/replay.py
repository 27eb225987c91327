"""A server that plays a recorded conversation to its first client.

    python3 -m tetherhost.replay CONVERSATION --port PORT --pid-file FILE --verdict FILE

CONVERSATION is a JSON Lines file in the shape of a recording
(docs/conversations.md): each line one socket call as the client sees it.
A "send" line is what the client must send, compared byte for byte as it
arrives (or "any": that many bytes, whatever they are); a "recv" line is
sent to the client; "close" closes the connection, "accept" takes the next
one. Notes and the keys a recording adds (conn, client, ret, t) are skipped.

Once listening the server writes its pid to the pid file and lets go of its
standard streams. When the script ends, or the client departs from it, it
writes the verdict file, {"ok": true} or {"ok": false, "where": ...}, and
exits; SIGTERM ends it the same way.
"""
import argparse
import json
import os
import signal
import socket
import sys
from typing import List, Optional, Tuple

# A step: ("send", bytes) the client sends, ("any", count), ("recv", bytes)
# the client receives, ("close", None) or ("accept", None).
Step = Tuple[str, object]


def read_conversation(path: str) -> List[Step]:
    steps: List[Step] = []
    with open(path, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            if not line.strip():
                continue
            entry = json.loads(line)
            if "note" in entry:
                continue
            if entry.get("close"):
                steps.append(("close", None))
            elif entry.get("accept"):
                steps.append(("accept", None))
            elif entry.get("dir") in ("send", "recv"):
                if "any" in entry:
                    steps.append(("any", int(entry["any"])))
                    continue
                data = entry["text"].encode("latin-1") if "text" in entry else bytes.fromhex(entry["hex"])
                steps.append((entry["dir"], data))
            else:
                raise ValueError(f"{path}:{number}: not a step: {line.strip()}")
    return steps


def receive_exactly(connection: socket.socket, count: int) -> bytes:
    data = b""
    while len(data) < count:
        piece = connection.recv(count - len(data))
        if not piece:
            break
        data += piece
    return data


def play(listener: socket.socket, steps: List[Step]) -> Optional[str]:
    """Plays the steps; None when they all ran as written, otherwise where
    the client departed from them."""
    connection, _ = listener.accept()
    try:
        for index, (kind, value) in enumerate(steps, 1):
            if kind == "send":
                received = receive_exactly(connection, len(value))
                if received != value:
                    return f"step {index}: expected {value!r}, received {received!r}"
            elif kind == "any":
                received = receive_exactly(connection, value)
                if len(received) != value:
                    return f"step {index}: expected {value} bytes, received {len(received)}"
            elif kind == "recv":
                connection.sendall(value)
            elif kind == "close":
                connection.close()
            elif kind == "accept":
                connection.close()
                connection, _ = listener.accept()
        return None
    finally:
        connection.close()


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python3 -m tetherhost.replay", description=__doc__.split("\n")[0])
    parser.add_argument("conversation")
    parser.add_argument("--port", type=int, default=4001)
    parser.add_argument("--pid-file", required=True)
    parser.add_argument("--verdict", required=True)
    options = parser.parse_args(arguments)
    steps = read_conversation(options.conversation)

    def conclude(where: Optional[str]) -> None:
        verdict = {"ok": True} if where is None else {"ok": False, "where": where}
        with open(options.verdict, "w", encoding="utf-8") as out:
            json.dump(verdict, out)

    def ended(signal_number, frame):
        conclude("ended by a signal before the script's end")
        sys.exit(0)

    signal.signal(signal.SIGTERM, ended)
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", options.port))
    listener.listen(8)
    with open(options.pid_file, "w", encoding="utf-8") as pid:
        pid.write(f"{os.getpid()}\n")
    detach_standard_streams()
    conclude(play(listener, steps))
    return 0


def detach_standard_streams() -> None:
    """Standard input, output and error to /dev/null: whoever started this
    process learns from their end that it is ready."""
    quiet = os.open(os.devnull, os.O_RDWR)
    for stream in (0, 1, 2):
        os.dup2(quiet, stream)
    os.close(quiet)


if __name__ == "__main__":
    sys.exit(main())
