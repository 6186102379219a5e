"""What a streaming client gets that reads slowly, beside clients that only watch.

    slow_clients.py text PROGRAM [MEGABYTES] [MEGABYTES_PER_SECOND]
    slow_clients.py events PROGRAM [COUNT] [PAUSE_MS_PER_100]

`text`: one client has code print the megabytes, and reads them at its own rate; another has subscribed and reads nothing,
a third reads a tenth of that rate. Meanwhile calls with "ppe" are timed; in the end, an interrupt. `events`: code posts
events of 1 KB to a client that pauses, beside one that reads nothing meanwhile, and one that is away meanwhile."""

import hashlib
import json
import os
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "gateway"))
from servers import Server  # noqa: E402
from wires import BayeuxClient, post  # noqa: E402

TOKEN = "0123456789abcdef"
DROPPED, GAP = "/connector/dropped", "/connector/gap"


class Numora(Server):
    def __init__(self, program, *options):
        super().__init__([program, "serve", "--port", "0", "--token", TOKEN, *options], stdout=subprocess.PIPE)
        self.port = int(self.process.stdout.readline().split(b":")[2].split(b"/")[0])

    def peak(self):
        """The largest resident size so far, in MiB."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmHWM:")) / 1024


class Client(BayeuxClient):
    """Reads at a rate, and keeps what tells of losses. `first`: the number from which on it gets messages."""

    def __init__(self, port, *patterns, after=None):
        super().__init__(port, "/cometd", TOKEN)
        self.losses, self.numbers, self.bytes = [], [], 0
        self.peer.settimeout(60)
        message = {"channel": "/meta/subscribe", "subscription": patterns}
        if after is not None:
            message["ext"] = {"connector": {"after": after}}
        self.first = self.ask(message)["ext"]["connector"]["seq"] + 1

    def receive(self):
        """A whole message, of however many frames."""
        text, isEnd = bytearray(), False
        while not isEnd:
            kind, size = self._take(2)
            if size >= 126:
                size = int.from_bytes(self._take(2 if size == 126 else 8), "big")
            payload = self._take(size)
            if kind & 8 == 0:
                text += payload
                isEnd = kind & 128 != 0
        return bytes(text)

    def run(self, code):
        self.send(self.envelope({"channel": "/eval/request", "data": code}))

    def messages(self):
        """Those of the next frame."""
        text = self.receive()
        self.bytes += len(text)
        for message in json.loads(text):
            number = message.get("ext", {}).get("connector", {}).get("seq")
            if number and "data" in message:
                self.numbers.append(number)
            if message["channel"] == "/meta/connect":
                self.send(self.envelope({"channel": "/meta/connect", "connectionType": "websocket"}))
            if message["channel"] in (DROPPED, GAP):
                self.losses.append(message)
            yield message

    def rest(self, last):
        """Reads up to the message with this number, or to the end of the session."""
        self.peer.settimeout(5)
        try:
            while not self.numbers or self.numbers[-1] < last:
                for _ in self.messages():
                    pass
        except OSError:
            pass

    def unnamed(self, last):
        """Those of the numbers up to the last that have neither come nor been named as lost."""
        missing = set(range(self.first, last + 1)) - set(self.numbers)
        for loss in self.losses:
            missing -= set(range(loss["data"].get("from", 0), loss["data"].get("to", -1) + 1))
        return len(missing)

    def until_completion(self, rate=None, pause=None):
        """All messages up to that of the completion, no faster than `rate` in bytes a second."""
        begin, read = time.monotonic(), self.bytes
        while True:
            for message in self.messages():
                yield message
                if message["channel"] == "/eval/response/completion":
                    return
            if rate:
                time.sleep(max(0, begin + (self.bytes - read) / rate - time.monotonic()))


def call(port, function, mode=None):
    """Seconds that a function takes to answer."""
    message = {"function": function, "arguments": [], "nargout": 1, "uuid": "1"}
    if mode:
        message["dequeMode"] = mode
    begin = time.perf_counter()
    post(port, TOKEN, "/connector/v1/FEval", message)[0].close()
    return time.perf_counter() - begin


def interrupt(port):
    post(port, TOKEN, "/connector/v1/Interrupt", {"uuid": "1"})[0].close()


def in_background(action):
    thread = threading.Thread(target=action, daemon=True)
    thread.start()
    return thread


def consume(client, rate):
    """Reads until the socket is closed."""
    try:
        for _ in client.until_completion(rate):
            pass
    except (OSError, TimeoutError):
        pass


def text(program, megabytes=1000, rate=50):
    size, rate = int(float(megabytes) * 1e6), float(rate) * 1e6
    line = ("<&> " + "x" * 1018) + "\n"
    lines = size // len(line)
    code = f"line = {line[:-1]!r}\nfor i in range({lines}): print(i, line)"
    expected, length = hashlib.sha256(), 0
    for i in range(lines):
        piece = f"{i} {line}".encode()
        expected.update(piece)
        length += len(piece)
    with Numora(program) as server:
        call(server.port, "os.getpid")
        stuck, slow = (Client(server.port, "/eval/response/**") for _ in range(2))
        owner = Client(server.port, "/eval/response/**")
        in_background(lambda: consume(slow, rate / 10))
        calls, got, count, largest = [], hashlib.sha256(), 0, 0
        isOver = threading.Event()

        def ask():
            while not isOver.wait(0.2):
                calls.append(call(server.port, "os.getpid", "ppe"))
        asking = in_background(ask)
        begin = time.monotonic()
        owner.run(code)
        for message in owner.until_completion(rate):
            if message["channel"] == "/eval/response/output":
                piece = message["data"].encode()
                got.update(piece)
                count += len(piece)
            largest = max(largest, server.memory())
        seconds = time.monotonic() - begin
        isOver.set()
        asking.join()

        # An interrupt while the code waits: its error comes through the same queue, the base prompt at once.
        owner.run("print('begun', flush=True)\nwhile True: print('x' * 1000)")
        while not any("begun" in str(m.get("data")) for m in owner.messages()):
            pass
        time.sleep(0.5)  # nothing is taken, so it has begun to wait
        begin = time.perf_counter()
        interrupt(server.port)
        call(server.port, "os.getpid")
        result = {
            "complete": count == length and got.digest() == expected.digest() and not owner.losses,
            "bytes": count, "megabytes a second": round(count / seconds / 1e6, 1),
            "resident MiB, at most": round(largest), "peak MiB": round(server.peak()),
            "ppe calls": len(calls), "ppe ms, median": round(1e3 * sorted(calls)[len(calls) // 2], 1),
            "ppe ms, longest": round(1e3 * max(calls), 1),
            "ms from an interrupt to the next call's answer": round(1e3 * (time.perf_counter() - begin), 1),
            "losses of the owner": len(owner.losses),
        }
        stuck.peer.close()
        return result


def events(program, count=100_000, pause=20):
    count, pause = int(count), float(pause) / 1e3
    channel = "/eventmgr/0/flood"
    code = ("import numora\npayload = 'x' * 1000\n"
            f"for i in range({count}): numora.post_event('flood', [i, payload])")
    with Numora(program) as server:
        call(server.port, "os.getpid")
        patterns = channel, "/eval/response/**"
        owner = Client(server.port, *patterns)
        stuck, away = (Client(server.port, *patterns) for _ in range(2))
        away.peer.close()
        seen, begin = [], time.monotonic()
        owner.run(code)
        for message in owner.until_completion():
            if message["channel"] != channel:
                continue
            seen.append(message["data"]["payload"][0])
            if len(seen) % 100 == 0:
                time.sleep(pause)
        seconds = time.monotonic() - begin
        last = owner.numbers[-1] - 1  # before the completion
        back = Client(server.port, *patterns, after=away.first - 1)
        back.first = away.first
        stuck.rest(last)
        back.rest(last)
        return {
            "complete": seen == list(range(count)) and not owner.losses, "events": len(seen),
            "seconds": round(seconds, 1), "losses of the owner": len(owner.losses),
            "watcher that read nothing meanwhile: got": len(stuck.numbers), "in notices": len(stuck.losses),
            "neither got nor named": stuck.unnamed(last),
            "client that came back: got": len(back.numbers), "its gap": back.losses and back.losses[0]["data"],
            "neither got nor named by it": back.unnamed(last), "peak MiB": round(server.peak()),
        }


if __name__ == "__main__":
    for name, value in {"text": text, "events": events}[sys.argv[1]](*sys.argv[2:]).items():
        print(f"{name}: {value}")
