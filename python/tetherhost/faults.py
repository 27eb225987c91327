"""A fault proxy in front of a tetherhost server.

    python3 -m tetherhost.faults --port PORT --upstream PORT --close-on HEX --pid-file FILE

Every connection to 127.0.0.1:PORT is passed byte for byte to the server on
127.0.0.1:UPSTREAM and back, until the client sends a frame equal to the
bytes HEX (the library sends each frame in one send, so it arrives as one
piece): then the proxy closes both sides of that connection without passing
the frame on, as a server that goes away in mid-conversation does. Other
connections go on. Once listening it writes its pid to the pid file and lets
go of its standard streams; SIGTERM ends it.
"""
import argparse
import os
import selectors
import signal
import socket
import sys
from typing import Dict, List, Optional

from .replay import detach_standard_streams


def serve(listener: socket.socket, upstream_port: int, close_on: bytes) -> None:
    selector = selectors.DefaultSelector()
    selector.register(listener, selectors.EVENT_READ)
    # Each socket's partner, and which of them are clients.
    partner: Dict[socket.socket, socket.socket] = {}
    clients = set()

    def drop(one: socket.socket) -> None:
        for side in (one, partner.get(one)):
            if side is None or side not in partner:
                continue
            selector.unregister(side)
            partner.pop(side)
            clients.discard(side)
            side.close()

    while True:
        for key, _ in selector.select():
            ready = key.fileobj
            if ready is listener:
                client, _ = listener.accept()
                server = socket.create_connection(("127.0.0.1", upstream_port))
                partner[client], partner[server] = server, client
                clients.add(client)
                selector.register(client, selectors.EVENT_READ)
                selector.register(server, selectors.EVENT_READ)
                continue
            if ready not in partner:
                continue
            data = ready.recv(65536)
            if not data or (ready in clients and data == close_on):
                drop(ready)
                continue
            partner[ready].sendall(data)


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python3 -m tetherhost.faults", description=__doc__.split("\n")[0])
    parser.add_argument("--port", type=int, default=4001)
    parser.add_argument("--upstream", type=int, required=True)
    parser.add_argument("--close-on", required=True, help="the frame, as hex")
    parser.add_argument("--pid-file", required=True)
    options = parser.parse_args(arguments)
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(0))
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", options.port))
    listener.listen(16)
    with open(options.pid_file, "w", encoding="utf-8") as pid:
        pid.write(f"{os.getpid()}\n")
    detach_standard_streams()
    serve(listener, options.upstream, bytes.fromhex(options.close_on))
    return 0


if __name__ == "__main__":
    sys.exit(main())
