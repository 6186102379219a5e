"""Kernels for notebooks, each a process of its own, and the sockets of a front end that does next to nothing itself."""

import contextlib
import hashlib
import hmac
import json
import os
import subprocess
import sys
import tempfile
import time

import zmq

from servers import Server

PARTS = "shell", "control", "stdin", "iopub", "hb"
KEY = b"0123456789abcdef"
DELIMITER = b"<IDS|MSG>"
LIMIT = 60


class Skeleton(Server):
    def __init__(self, build):
        super().__init__([os.path.join(build, "bin", "kernel_skeleton"), KEY.decode()], stdin=subprocess.PIPE,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        shell, iopub = self.process.stdout.readline().decode().split()
        self.ports = {"shell": shell, "iopub": iopub}


class Kernel(Server):
    def __init__(self, *command):
        self.folder = tempfile.TemporaryDirectory()
        sockets = [zmq.Context.instance().socket(zmq.ROUTER) for _ in PARTS]
        self.ports = {name: each.bind_to_random_port("tcp://127.0.0.1") for name, each in zip(PARTS, sockets)}
        for each in sockets:
            each.close(0)
        time.sleep(.01)  # that is done by another thread
        file = os.path.join(self.folder.name, "kernel.json")
        with open(file, "w", encoding="ascii") as connection:
            json.dump({**{name + "_port": port for name, port in self.ports.items()}, "ip": "127.0.0.1", "transport": "tcp",
                       "key": KEY.decode(), "signature_scheme": "hmac-sha256"}, connection)
        super().__init__([*command, "-f", file], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                         env={**os.environ, "IPYTHONDIR": self.folder.name,
                              "XDG_STATE_HOME": self.folder.name})

    def __exit__(self, *details):
        super().__exit__(*details)
        self.folder.cleanup()


def ours(build):
    return Kernel(os.path.join(build, "bin", "numora"), "kernel")


def theirs(_):
    return Kernel(sys.executable, "-m", "ipykernel_launcher")


class FrontEnd:
    def __init__(self, kernel):
        self.sockets, self._count = {}, 0
        for name in kernel.ports.keys() & {"shell", "control", "iopub"}:
            each = self.sockets[name] = zmq.Context.instance().socket(zmq.SUB if name == "iopub" else zmq.DEALER)
            each.linger, each.rcvhwm, each.reconnect_ivl = 0, 0, 1
            if name == "iopub":
                each.subscribe(b"")
            each.connect(f"tcp://127.0.0.1:{kernel.ports[name]}")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for each in self.sockets.values():
            each.close()

    def send(self, kind, content, channel="shell"):
        """The name of the request."""
        self._count += 1
        name = b"bench-%d" % self._count
        header = json.dumps({"msg_id": name.decode(), "session": "bench", "username": "bench", "version": "5.3",
                             "msg_type": kind, "date": f"2026-01-01T00:00:00.{self._count:06}Z"}).encode()
        parts = [header, b"{}", b"{}", json.dumps(content).encode()]
        signature = hmac.new(KEY, b"".join(parts), hashlib.sha256).hexdigest().encode()
        self.sockets[channel].send_multipart([DELIMITER, signature, *parts])
        return name + b'"'

    def execute(self, code):
        return self.send("execute_request", {"code": code, "silent": False, "store_history": True, "user_expressions": {},
                                             "allow_stdin": False, "stop_on_error": False})

    def receive(self, channel, seconds=LIMIT):
        """Header, parent and content."""
        if not self.sockets[channel].poll(seconds * 1000):
            raise TimeoutError(f"nothing comes on {channel}")
        frames = self.sockets[channel].recv_multipart()
        at = frames.index(DELIMITER)
        return frames[at + 2], frames[at + 3], frames[at + 5]

    def reply(self, name, channel="shell", seconds=LIMIT):
        while True:
            _, parent, content = self.receive(channel, seconds)
            if name in parent:
                return content

    def published(self, name, seconds=LIMIT):
        """What comes of it, up to its idle."""
        while True:
            header, parent, content = self.receive("iopub", seconds)
            if name not in parent:
                continue
            if b'"status"' in header and b'"idle"' in content:
                return
            yield header, content

    def until_it_runs(self, name):
        next(None for header, _ in self.published(name) if b'"execute_input"' in header)

    def run(self, code):
        """To the end; gives what was published."""
        name = self.execute(code)
        came = list(self.published(name))
        reply = self.reply(name)
        if b'"ok"' not in reply:
            raise RuntimeError(reply)
        return came


@contextlib.contextmanager
def ready(kernel):
    """A front end that gets all that is published from now on."""
    with kernel, FrontEnd(kernel) as front_end:
        end = time.monotonic() + LIMIT
        while True:
            name = front_end.execute("pass")
            front_end.reply(name)
            try:
                for _ in front_end.published(name, .3):
                    pass
                break
            except TimeoutError:
                if time.monotonic() > end:
                    raise
        yield front_end
