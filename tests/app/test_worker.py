"""Runs `numora worker` as its gateway does: by the frames of its link."""

import fcntl
import json
import os
import re
import select
import signal
import socket
import struct
import tempfile
import time
import unittest

NUMORA = os.environ["NUMORA"]
KINDS = (
    "hello start listen unlisten watch unwatch ready request response message reply ended notice notices_end pace "
    "publish state log interrupt ping pong stop"
).split()
LIMIT = 60  # seconds; a fail-safe


def text(value):
    return struct.pack("<I", len(value.encode())) + value.encode()


def number(value):
    return struct.pack("<Q", value)


def texts_in(head):
    """The strings that a head begins with."""
    found = []
    while len(head) >= 4 and 4 + struct.unpack_from("<I", head)[0] <= len(head):
        size = struct.unpack_from("<I", head)[0]
        found.append(head[4 : 4 + size].decode())
        head = head[4 + size :]
    return found


def command_of(process):
    """Empty when it has ended."""
    try:
        with open(f"/proc/{process}/cmdline") as file:
            return file.read()
    except FileNotFoundError:
        return ""


def moved(descriptor):
    """Out of the way of the numbers that the worker gets."""
    result = fcntl.fcntl(descriptor, fcntl.F_DUPFD_CLOEXEC, 20)
    os.close(descriptor)
    return result


class Lane:
    """One socket of the link."""

    def __init__(self):
        ends = socket.socketpair()
        self.socket, self.bytes, self.begun = ends[0], b"", {}
        self.worker = moved(ends[1].detach())

    def send(self, kind, identity=0, head=b"", body=b""):
        rest = struct.pack("<BBHQ", KINDS.index(kind) + 1, 0, len(head), identity) + head + body
        self.socket.sendall(struct.pack("<I", len(rest)) + rest)

    def next(self, limit=LIMIT):
        """(kind, id, head, body) of the next frame; None at the end of the socket."""
        deadline = time.monotonic() + limit
        while True:
            if len(self.bytes) >= 4 and len(self.bytes) >= 4 + struct.unpack_from("<I", self.bytes)[0]:
                size, kind, flags, head, identity = struct.unpack_from("<IBBHQ", self.bytes)
                piece, self.bytes = self.bytes[16 : 4 + size], self.bytes[4 + size :]
                whole = self.begun.setdefault((kind, identity), [piece[:head], b""])
                whole[1] += piece[head:]
                if flags & 1:
                    continue
                return KINDS[kind - 1], identity, *self.begun.pop((kind, identity))
            if not select.select([self.socket], [], [], max(0, deadline - time.monotonic()))[0]:
                raise TimeoutError("no frame has come")
            more = self.socket.recv(1 << 20)
            if not more:
                return None
            self.bytes += more


class Worker:
    def __init__(self, folder="", venv="", environment=None):
        self.main, self.control = Lane(), Lane()
        self.box, self.trace = (moved(os.memfd_create(name)) for name in ("box", "trace"))
        os.ftruncate(self.box, 128 << 10)
        pipes = [tuple(map(moved, os.pipe())) for _ in range(2)]
        self.errors = pipes[1][0]
        given = [pipes[0][1], pipes[1][1], self.main.worker, self.control.worker, self.box, self.trace]
        given += [pipes[0][0], pipes[1][0]]
        actions = [(os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0)]
        actions += [(os.POSIX_SPAWN_DUP2, descriptor, i + 1) for i, descriptor in enumerate(given)]
        variables = {k: v for k, v in os.environ.items() if not k.startswith("NUMORA")} | (environment or {})
        self.pid = os.posix_spawn(NUMORA, ["numora", "worker"], variables, file_actions=actions, setsid=True)
        for descriptor in (self.main.worker, self.control.worker, pipes[0][1], pipes[1][1]):
            os.close(descriptor)
        self.kept = [self.box, self.trace, pipes[0][0], pipes[1][0]]
        self.status = None
        assert self.main.next()[0] == "hello"
        self.main.send("start", head=text("default") + number(1) + text(folder) + text(venv) + number(80) * 2 + number(3) + struct.pack("<I", 0))
        self.wanted = []
        while (frame := self.main.next()) and frame[0] != "ready":
            self.wanted.append((frame[0], frame[2].decode()))
            if frame[0] == "watch":
                self.main.send("notices_end", frame[1])

    def ask(self, lane, kind, identity, type_name, message):
        now = number(time.monotonic_ns()) + number(time.time_ns() // 10**6)
        head = text("connector/v1/" + type_name) + text("test") + b"\0" + struct.pack("<I", 0) + now + number(7) + number(0)
        lane.send(kind, identity, head, json.dumps(message).encode())

    def begin(self, code, uuid="u"):
        self.ask(self.main, "request", 1, "Eval", {"mcode": code, "uuid": uuid})

    def eval(self, code):
        self.begin(code)
        return json.loads(self.until("response")[3])["responseStr"]

    def stream(self, code, name, identity, arrived=None, paced=True):
        now = number(arrived or time.monotonic_ns()) + number(time.time_ns() // 10**6)
        head = text("/eval/request") + text("test") + b"\0" + struct.pack("<I", 0) + text(name)
        head += b"\0" + number(0) + bytes([paced]) + now + number(7) + number(0)
        self.main.send("message", identity, head, json.dumps(code).encode())

    def until(self, kind):
        while frame := self.main.next():
            if frame[0] == kind:
                return frame
        raise EOFError("the worker has ended")

    def pong(self):
        self.control.send("ping", 5, number(3))
        kind, identity, head, _ = self.control.next()
        assert (kind, identity) == ("pong", 5)
        return texts_in(head)[0], *struct.unpack("<QQ", head[-16:])

    def has_ended(self):
        if self.status is None:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.status = os.waitstatus_to_exitcode(status)
        return self.status is not None

    def wait(self):
        """How it ends: its exit status, or minus the signal."""
        deadline = time.monotonic() + LIMIT
        while not self.has_ended():
            if time.monotonic() > deadline:
                raise TimeoutError("the worker does not end")
            time.sleep(0.005)
        return self.status

    def close(self):
        if self.status is None:
            os.kill(self.pid, signal.SIGKILL)
            self.wait()
        for lane in (self.main, self.control):
            lane.socket.close()
        for descriptor in self.kept:
            os.close(descriptor)


class WorkerTest(unittest.TestCase):
    def worker(self, **options):
        worker = Worker(**options)
        self.addCleanup(worker.close)
        return worker

    def test_requests_and_streams_are_answered_in_order(self):
        worker = self.worker()
        self.assertIn(("listen", "/eval/request"), worker.wanted)
        self.assertEqual(worker.eval("1 + 1"), "2\n")
        worker.stream("print('out')", "s1", 9)
        frames, output, completion = [], '/eval/response/output "out\\n"', '/eval/response/completion "Done: success"'
        while not {"ended", completion} <= set(frames):
            kind, _, head, body = worker.main.next()
            frames.append(" ".join([texts_in(head)[0], body.decode()]) if kind == "publish" else kind)
        told = [frame for frame in frames if frame not in ("state", "log")]
        self.assertEqual(frames.count("state"), 2)  # busy and idle
        self.assertEqual(sorted(told), sorted(["reply", output, completion, "ended"]))
        self.assertLess(told.index("reply"), told.index("ended"))
        self.assertEqual(told[-1], completion)  # the name is free again before its client knows of the end

    def test_a_name_is_in_use_while_its_code_waits_for_input(self):
        worker = self.worker()
        worker.stream("x = input()", "name", 2)
        while texts_in(worker.until("state")[2]) != ["input"]:
            pass
        worker.stream("1", "name", 3)
        while (frame := worker.until("reply"))[1] != 3:
            pass
        self.assertEqual(struct.unpack_from("<Q", frame[2])[0], 409)
        self.assertEqual(worker.until("ended")[1], 3)

    def test_code_that_an_interrupt_has_overtaken_is_not_run(self):
        worker = self.worker()
        earlier = time.monotonic_ns()
        worker.ask(worker.control, "interrupt", 3, "Interrupt", {})
        self.assertEqual(worker.control.next()[0], "response")
        worker.stream("x = 1", "late", 4, earlier)
        self.assertIn(b"Done: failure", worker.until("publish")[3])
        self.assertEqual(worker.eval("'x' in dir()"), "False\n")

    def test_an_interrupt_gets_through_while_the_gateway_reads_nothing(self):
        worker = self.worker()
        for paced in (True, False):
            worker.stream("i = 0\nwhile True: print(i); i += 1", "flood", 2, paced=paced)
            time.sleep(1)  # let it fill the socket; less of it tests less
            worker.ask(worker.control, "interrupt", 3, "Interrupt", {})
            self.assertEqual(worker.control.next()[:2], ("response", 3))
            lines, kind = "", ""
            while kind != "ended":
                kind, _, head, body = worker.main.next()
                if kind == "publish" and texts_in(head)[0] == "/eval/response/output":
                    lines += json.loads(body)
            printed = lines.split("\n")[:-1]
            self.assertEqual(printed, [str(i) for i in range(len(printed))])
            with open(f"/proc/{worker.pid}/status") as file:
                peak = int(re.search(r"VmHWM:\s*(\d+)", file.read())[1])
            self.assertLess(peak, 200 << 10)  # of KiB

    def test_only_native_code_that_keeps_the_lock_is_deaf_and_even_that_gives_a_trace(self):
        for code, is_deaf in (
            ("import ctypes; ctypes.PyDLL(None).sleep(600)", True),
            ("import time; time.sleep(600)", False),
            ("while True: pass", False),
        ):
            with self.subTest(code):
                worker = self.worker()
                worker.begin(code, "deaf")
                while not worker.pong()[0]:
                    time.sleep(0.01)
                for _ in range(3):
                    time.sleep(1)
                    request, running, deaf = worker.pong()
                self.assertEqual(request, "connector/v1/Eval deaf")
                self.assertGreaterEqual(running, 3000)
                self.assertEqual(deaf >= 1000, is_deaf, deaf)
                os.kill(worker.pid, signal.SIGRTMIN + 1)
                deadline = time.monotonic() + LIMIT
                while b"most recent call first" not in os.pread(worker.trace, 1 << 16, 0):
                    self.assertLess(time.monotonic(), deadline)

    def test_a_crash_leaves_the_request_the_last_words_and_a_trace(self):
        worker = self.worker()
        worker.begin("print('last words'); import os; os.write(2, b'native'); import ctypes; ctypes.string_at(0)")
        self.assertEqual(worker.wait(), -signal.SIGSEGV)
        box = os.pread(worker.box, 128 << 10, 0)
        for part in (b"connector/v1/Eval", b"ctypes.string_at(0)", b"last words\n"):
            self.assertIn(part, box)
        rest = os.read(worker.errors, 1 << 16) if select.select([worker.errors], [], [], 0)[0] else b""
        self.assertIn(b"native", box + rest)
        self.assertIn(b"Segmentation fault", os.pread(worker.trace, 1 << 16, 0))
        worker = self.worker()
        worker.ask(worker.main, "request", 1, "FEval", {"function": "ctypes.string_at", "arguments": [1, 2], "uuid": "u"})
        self.assertEqual(worker.wait(), -signal.SIGSEGV)
        self.assertIn(b"ctypes.string_at(1, 2)", os.pread(worker.box, 128 << 10, 0))

    def test_it_ends_with_its_link(self):
        closing = "import os, time; os.closerange(3, 65536); time.sleep(60)"
        replacing = "import os, time; [os.dup2(0, i) for i in range(500, 600)]; time.sleep(60)"
        cannot_use_it = 76  # by which the supervisor knows, which then ends the rest
        for name, expected, end in (
            ("main", -signal.SIGKILL, lambda worker: worker.main.socket.shutdown(socket.SHUT_RDWR)),
            ("control", -signal.SIGKILL, lambda worker: worker.control.socket.shutdown(socket.SHUT_RDWR)),
            ("no frame", cannot_use_it, lambda worker: worker.main.socket.sendall(b"\xff" * 64)),
            ("its own descriptors", cannot_use_it, lambda worker: worker.begin(closing)),
            ("other descriptors of their numbers", cannot_use_it, lambda worker: worker.begin(replacing)),
        ):
            with self.subTest(name):
                worker = self.worker()
                child = int(worker.eval("import subprocess; subprocess.Popen(['sleep', '600']).pid"))
                end(worker)
                while not worker.has_ended():
                    try:
                        worker.control.send("ping", 6, number(3))
                    except OSError:
                        pass
                    time.sleep(0.05)
                self.assertEqual(worker.status, expected)
                if expected == cannot_use_it:
                    os.kill(child, signal.SIGKILL)
                else:
                    self.assertNotIn("sleep", command_of(child))

    def test_it_stops_when_asked_and_runs_what_is_registered_for_the_end(self):
        with tempfile.TemporaryDirectory() as folder:
            worker = self.worker(folder=folder)
            worker.eval("import atexit; atexit.register(lambda: open('ended', 'w').close()); 1")
            stubborn = "while True:\n try:\n  while True: pass\n except KeyboardInterrupt:\n  n -= 1\n  if n == 0: raise"
            worker.stream("n = 3\n" + stubborn, "stubborn", 2)
            worker.until("state")
            worker.control.send("stop", head=number(2000))
            while b"Done: failure" not in worker.until("publish")[3]:
                pass
            self.assertEqual(worker.wait(), 0)
            self.assertTrue(os.path.exists(os.path.join(folder, "ended")))


if __name__ == "__main__":
    unittest.main()
