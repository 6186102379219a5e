"""The least of HTTP and WebSockets that measuring takes, on bare sockets without Nagle's algorithm."""

import json
import socket
import struct
import time

TEXT, BINARY = 0x81, 0x82
PING = b"\x89\x80\0\0\0\0"


def connect(port, source="127.0.0.1"):
    peer = socket.create_connection(("127.0.0.1", port), 30, (source, 0))
    peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return peer


def read_head(peer):
    """The lines up to the empty one, and what came behind it."""
    got = b""
    while b"\r\n\r\n" not in got:
        more = peer.recv(65536)
        if not more:
            raise ConnectionError(f"closed after {got[:200]!r}")
        got += more
    head, _, rest = got.partition(b"\r\n\r\n")
    return head, rest


class Pinger:
    """Sends the same bytes again and again, and expects the same bytes back each time."""

    def __init__(self, peer, request, expected):
        self._peer, self._request, self._expected = peer, request, expected
        self._buffer = bytearray(len(expected))

    def round_trip(self):
        self._peer.sendall(self._request)
        view, got = memoryview(self._buffer), 0
        while got < len(view):
            count = self._peer.recv_into(view[got:])
            if not count:
                raise ConnectionError("closed")
            got += count
        if self._buffer != self._expected:
            raise AssertionError(bytes(self._buffer))


def post(port, token, path, body, status=b"200"):
    """A connection, the bytes of the request and those of its answer, which has been good."""
    data = json.dumps(body).encode()
    request = (f"POST {path} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nAuthorization: Bearer {token}\r\n"
               f"Content-Type: application/json\r\nContent-Length: {len(data)}\r\n\r\n").encode() + data
    peer = connect(port)
    peer.sendall(request)
    head, body = read_head(peer)
    lines = head.lower().split(b"\r\n")
    length = next(int(line.split(b":")[1]) for line in lines if line.startswith(b"content-length"))
    while len(body) < length:
        body += peer.recv(65536)
    if not head.startswith(b"HTTP/1.1 " + status + b" "):
        raise RuntimeError(f"{head!r} {body!r}")
    return peer, request, head + b"\r\n\r\n" + body


def frame(payload, kind=TEXT):
    """What a client sends. Its mask is zero, so that masking costs the client nothing; the server unmasks as ever."""
    size = len(payload)
    if size < 126:
        head = struct.pack(">BB", kind, 0x80 | size)
    elif size < 65536:
        head = struct.pack(">BBH", kind, 0x80 | 126, size)
    else:
        head = struct.pack(">BBQ", kind, 0x80 | 127, size)
    return head + bytes(4) + payload


class WebSocket:
    def __init__(self, port, path, token="", source="127.0.0.1"):
        self.peer = connect(port, source)
        self.peer.sendall((f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\n"
                           "Connection: Upgrade\r\nUpgrade: websocket\r\n"
                           f"Authorization: Bearer {token}\r\nSec-WebSocket-Version: 13\r\n"
                           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n").encode())
        head, self._rest = read_head(self.peer)
        if b" 101 " not in head:
            raise RuntimeError(head.decode())

    def send(self, payload, kind=TEXT):
        self.peer.sendall(frame(payload, kind))

    def receive(self):
        """The payload of the next frame that holds data: a message, or a part of one."""
        while True:
            kind, size = self._take(2)
            if size == 126:
                size, = struct.unpack(">H", self._take(2))
            elif size == 127:
                size, = struct.unpack(">Q", self._take(8))
            payload = self._take(size)
            if kind & 8 == 0:
                return payload

    def _take(self, size):
        if len(self._rest) < size:
            taken = bytearray(size)
            got = len(self._rest)
            taken[:got] = self._rest
            self._rest = b""
            view = memoryview(taken)
            while got < size:
                if size - got >= 65536:
                    count = self.peer.recv_into(view[got:])
                else:
                    more = self.peer.recv(65536)
                    count = len(more)
                    taken[got:got + count] = more[:size - got]
                    self._rest = more[size - got:]
                if not count:
                    raise ConnectionError("closed")
                got += count
            return taken
        taken, self._rest = self._rest[:size], self._rest[size:]
        return taken


class Counter:
    """Counts the occurrences of `marker` in what comes over sockets, also where it comes in two parts. Knows nothing of
    frames: the marker must not be cut by their heads."""

    def __init__(self, marker, size=1 << 20):
        self._marker = marker
        self._buffer = bytearray(size)
        self._kept = {}

    def read(self, peer):
        """Reads once, and returns the number of markers that are complete now."""
        kept = self._kept.get(peer, b"")
        self._buffer[:len(kept)] = kept
        count = peer.recv_into(memoryview(self._buffer)[len(kept):])
        if not count:
            raise ConnectionError("closed")
        end = len(kept) + count
        self._kept[peer] = bytes(self._buffer[max(0, end - len(self._marker) + 1):end])
        return self._buffer.count(self._marker, 0, end)


class BayeuxClient(WebSocket):
    """A session over a WebSocket, without acknowledgements: deliveries are pushed."""

    def __init__(self, port, path, token="", source="127.0.0.1"):
        super().__init__(port, path, token, source)
        self.identity = self.ask({"channel": "/meta/handshake", "version": "1.0",
                                  "supportedConnectionTypes": ["websocket"]})["clientId"]
        self.send(self.envelope({"channel": "/meta/connect", "connectionType": "websocket"}))

    def envelope(self, message):
        if hasattr(self, "identity"):
            message = {**message, "clientId": self.identity}
        return json.dumps([{**message, "id": "1"}]).encode()

    def ask(self, message):
        """Sends the message, and returns its reply."""
        self.send(self.envelope(message))
        while True:
            for reply in json.loads(self.receive()):
                if reply["channel"] == message["channel"]:
                    if not reply["successful"]:
                        raise RuntimeError(reply)
                    return reply

    def subscribe(self, pattern):
        self.ask({"channel": "/meta/subscribe", "subscription": pattern})


def first_eval(port, token, seconds=30):
    """Asks until there is a good answer."""
    end = time.monotonic() + seconds
    while True:
        try:
            peer, _, reply = post(port, token, "/connector/v1/Eval", {"mcode": "6 * 7", "uuid": "1"})
            peer.close()
            if b'"responseStr":"42\\n"' not in reply:
                raise RuntimeError(reply)
            return
        except (OSError, RuntimeError):
            if time.monotonic() > end:
                raise
