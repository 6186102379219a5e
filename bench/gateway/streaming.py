"""50 MB of 1 KiB lines, printed by the code and received by one client."""

import contextlib
import time

from report import median
from servers import Kernel, Numora
from wires import BayeuxClient

LINES, LINE_BYTES, RUNS = 48_828, 1024, 5
CODE = f"line = 'x' * {LINE_BYTES - 1}\nfor i in range({LINES}): print(line)"
LINE_END = b"\\n"  # its text may come in another message than the line's
MEGABYTES = LINES * LINE_BYTES / 1e6


class Stream:
    def __init__(self, server):
        self._client = BayeuxClient(server.port, "/cometd", server.token)
        self._client.subscribe("/eval/response/**")
        self._run = self._client.envelope({"channel": "/eval/request", "data": CODE})

    def run(self):
        """Seconds until the last line, and until the completion."""
        lines, last, is_cut = 0, None, False
        begin = time.perf_counter()
        self._client.send(self._run)
        while True:
            part = self._client.receive()
            now = time.perf_counter() - begin
            lines += part.count(LINE_END) + (is_cut and part.startswith(LINE_END[1:]))
            is_cut = part.endswith(LINE_END[:1])
            if last is None and lines >= LINES:
                last = now
            if b"/connector/dropped" in part:
                raise RuntimeError("the server has dropped lines")
            if b"/eval/response/completion" in part:
                assert lines == LINES, f"{lines} lines of {LINES}"
                return last, now


def run_in_kernel(kernel):
    """The same; ipykernel says "idle" when it is done."""
    import zmq
    socket = zmq.Socket.shadow(kernel.client.iopub_channel.socket.underlying)
    lines, last = 0, None
    begin = time.perf_counter()
    identity = kernel.client.execute(CODE).encode()
    while True:
        if not socket.poll(30_000):
            raise TimeoutError("ipykernel is silent")
        parts = socket.recv_multipart()
        now = time.perf_counter() - begin
        content = parts[-1]
        if b'"stream"' in parts[-4]:
            lines += content.count(LINE_END)
        if last is None and lines >= LINES:
            last = now
        if b'"idle"' in content and identity in parts[-3]:
            kernel.client.get_shell_msg(timeout=30)
            assert lines == LINES, f"ipykernel: {lines} lines of {LINES}"
            return last, now


def rates(runs):
    return [MEGABYTES / median([run[i] for run in runs]) for i in range(2)]


def measure(build, _, report, missing):
    with contextlib.ExitStack() as stack:
        stream = Stream(stack.enter_context(Numora(build)))
        kernel = None if "Kernel" in missing else stack.enter_context(Kernel())
        if kernel:
            kernel.execute("pass")
        ours, theirs = [], []
        for _ in range(RUNS):
            ours.append(stream.run())
            if kernel:
                theirs.append(run_in_kernel(kernel))
    last, done = rates(ours)
    title = "50 MB in 1 KiB lines, last byte"
    if not theirs:
        report.add(title, f"{last:.0f} MB/s; completion {done:.0f} MB/s", goal="2 x ipykernel")
        return
    kernel_last, kernel_done = rates(theirs)
    report.add(title, f"{last:.0f} MB/s", f"{last / kernel_last:.2f} x ipykernel", "2 x", last >= 2 * kernel_last)
    report.add("  until the completion", f"{done:.0f} MB/s", f"{done / kernel_done:.2f} x ipykernel", "2 x",
               done >= 2 * kernel_done)
    report.add("  ipykernel, last byte", f"{kernel_last:.0f} MB/s")
    report.add("  ipykernel, idle", f"{kernel_done:.0f} MB/s")
