"""One publisher, 100 subscribers, messages of 1 KiB, in one server after the other, again and again."""

import contextlib
import json
import multiprocessing
import os
import selectors
import time

from report import median
from servers import Faye, Nats, Numora
from wires import BINARY, PING, BayeuxClient, Counter, WebSocket, frame

SUBSCRIBERS, PROCESSES, ROUNDS = 100, 2, 4
MARKER = b"#the end#"
TEXT = b"x" * (1024 - len(MARKER)) + MARKER
WINDOW, BATCH = 192, 16  # messages that some subscriber has not got yet, in one frame at most; that are sent at once
LONGEST = 8.0  # seconds: sessions last for no more than some time without a further connect


class BayeuxPeer:
    CHANNEL = "/bench/messages"

    def __init__(self, port, path, token, source):
        self._client = BayeuxClient(port, path, token, source)
        self.peer = self._client.peer

    def subscribe(self):
        self._client.subscribe(self.CHANNEL)

    def publication(self):
        return frame(self._client.envelope({"channel": self.CHANNEL, "data": TEXT.decode()}))


class NatsPeer:
    SUBJECT = b"bench.messages"

    def __init__(self, port, _path, _token, source):
        self._socket = WebSocket(port, "/", source=source)
        self.peer = self._socket.peer
        options = {"verbose": False, "pedantic": False, "lang": "bench", "version": "0", "echo": True}
        self._socket.send(b"CONNECT " + json.dumps(options).encode() + b"\r\n", BINARY)
        self._flush()

    def subscribe(self):
        self._socket.send(b"SUB " + self.SUBJECT + b" 1\r\n", BINARY)
        self._flush()

    def publication(self):
        return frame(b"PUB %s %d\r\n%s\r\n" % (self.SUBJECT, len(TEXT), TEXT), BINARY)

    def _flush(self):
        self._socket.send(b"PING\r\n", BINARY)
        while b"PONG" not in self._socket.receive():
            pass


def count_deliveries(peer_type, address, number, counts, ready, is_over):
    """A process with its share of the subscribers, which counts what they get."""
    selector, peers, counter = selectors.EpollSelector(), [], Counter(MARKER)
    for i in range(SUBSCRIBERS // PROCESSES):
        # A server may bound the handshakes of one address.
        peer = peer_type(*address, f"127.0.{number + 1}.{i // 10 + 1}")
        peer.subscribe()
        peers.append(peer)
        selector.register(peer.peer, selectors.EVENT_READ)
    ready.release()
    parent, next_sign = os.getppid(), 0
    while not is_over.is_set() and os.getppid() == parent:
        for key, _ in selector.select(.5):
            counts[number] += counter.read(key.fileobj)
        if time.monotonic() > next_sign:
            next_sign = time.monotonic() + 5
            for peer in peers:
                peer.peer.sendall(PING)


class Side:
    """A server with its subscribers and its publisher."""

    def __init__(self, stack, server, peer_type, path="", token=""):
        self.server = stack.enter_context(server)
        self.rates, self.costs = [], []
        address = (server.port, path, token)
        self._counts = multiprocessing.RawArray("Q", PROCESSES)
        ready, is_over = multiprocessing.Semaphore(0), multiprocessing.Event()
        for number in range(PROCESSES):
            process = multiprocessing.Process(target=count_deliveries, daemon=True,
                                              args=(peer_type, address, number, self._counts, ready, is_over))
            process.start()
            stack.callback(process.join, 10)
        stack.callback(is_over.set)
        for _ in range(PROCESSES):
            if not ready.acquire(timeout=60):
                raise TimeoutError("the subscribers are not there")
        publisher = peer_type(*address, "127.0.0.1")
        self._peer, self._batch = publisher.peer, publisher.publication() * BATCH

    def round(self, seconds):
        begin, used = time.perf_counter(), self.server.processor_seconds()
        before, sent = sum(self._counts), 0
        while time.perf_counter() < begin + seconds:
            if sent - (sum(self._counts) - before) / SUBSCRIBERS > WINDOW - BATCH:
                self._drop_replies()
                time.sleep(.0002)
                continue
            self._peer.sendall(self._batch)
            sent += BATCH
        expected = sent * SUBSCRIBERS
        while sum(self._counts) - before < expected:
            if time.perf_counter() > begin + seconds + 20:
                raise RuntimeError(f"{expected - sum(self._counts) + before} of {expected} deliveries are missing")
            self._drop_replies()
            time.sleep(.0002)
        self.rates.append(expected / (time.perf_counter() - begin))
        self.costs.append((self.server.processor_seconds() - used) / expected)

    def _drop_replies(self):
        self._peer.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while self._peer.recv(1 << 20):
                pass
        self._peer.settimeout(30)


def measure(build, seconds, report, missing):
    with contextlib.ExitStack() as stack:
        ours = Numora(build)
        sides = {"ours": Side(stack, ours, BayeuxPeer, "/cometd", ours.token)}
        if "Nats" not in missing:
            sides["nats-server"] = Side(stack, Nats(), NatsPeer)
        if "Faye" not in missing:
            sides["faye"] = Side(stack, Faye(), BayeuxPeer, "/bayeux")
        for _ in range(ROUNDS):
            for side in sides.values():
                side.round(min(seconds, LONGEST) / ROUNDS)
    rate, cost = {}, {}
    for name, side in sides.items():
        rate[name], cost[name] = median(side.rates), median(side.costs)
    report.add("100 subscribers, 1 KiB: deliveries", f"{rate['ours']:,.0f} /s")
    report.add("  the server's processor time", f"{cost['ours'] * 1e6:.2f} us each")
    for name, factor in (("nats-server", 1), ("faye", 2)):
        if name in sides:
            more, less = rate["ours"] / rate[name], cost[name] / cost["ours"]
            report.add(f"  {name}: deliveries", f"{rate[name]:,.0f} /s", f"ours {more:.2f} x", f"{factor} x",
                       more >= factor)
            report.add(f"  {name}: processor time", f"{cost[name] * 1e6:.2f} us each", f"{less:.2f} x ours",
                       f"{factor} x", less >= factor)
