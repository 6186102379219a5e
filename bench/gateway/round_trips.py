"""Round trips of `pass`, against what their bytes and one hand-off between threads cost by themselves."""

import contextlib
import json
import time

from report import median, microseconds
from servers import Echo, Kernel, Numora
from wires import BayeuxClient, Pinger, connect, frame, post

CHUNK, WARM_UP = 50, 5


class RemoteCall:
    """A call over a WebSocket is acknowledged first and answered then, in frames of their own or in one."""

    def __init__(self, server):
        self.client = BayeuxClient(server.port, "/cometd", server.token)
        message = {"channel": "/service/connector/v1/Eval", "data": {"mcode": "pass", "uuid": "1"}}
        self.request = frame(self.client.envelope(message))

    def round_trip(self):
        self.client.peer.sendall(self.request)
        received = 0
        while True:
            answer = self.client.receive()
            received += len(answer)
            if b'"responseStr":""' in answer:
                return received


def echo(stack, build, mode, request_bytes, reply_bytes):
    server = stack.enter_context(Echo(build, mode, request_bytes, reply_bytes))
    return Pinger(connect(server.port), b"x" * request_bytes, b"x" * reply_bytes).round_trip


def evaluated_over_http(server):
    peer, request, reply = post(server.port, server.token, "/connector/v1/Eval", {"mcode": "pass", "uuid": "1"})
    answer = json.loads(reply.partition(b"\r\n\r\n")[2])
    assert answer["responseStr"] == "" and not answer["isError"] and not answer["messageFaults"], answer
    return Pinger(peer, request, reply), len(request), len(reply)


def sampled(sides, seconds):
    """The durations of each side's round trips, in chunks that take turns."""
    samples = {name: [] for name in sides}
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        for name, round_trip in sides.items():
            for number in range(CHUNK):
                begin = time.perf_counter()
                round_trip()
                if number >= WARM_UP:
                    samples[name].append(time.perf_counter() - begin)
    return samples


def measure(build, seconds, report, missing):
    with contextlib.ExitStack() as stack:
        server = stack.enter_context(Numora(build))
        http, http_out, http_in = evaluated_over_http(server)
        call = RemoteCall(server)
        call_in = call.round_trip()
        sides = {"http": http.round_trip, "call": call.round_trip,
                 "http bytes": echo(stack, build, "direct", http_out, http_in),
                 "http bytes, hand-off": echo(stack, build, "handoff", http_out, http_in),
                 "call bytes": echo(stack, build, "direct", len(call.request), call_in),
                 "call bytes, hand-off": echo(stack, build, "handoff", len(call.request), call_in)}
        if "Kernel" not in missing:
            kernel = stack.enter_context(Kernel())
            sides["kernel"] = lambda: kernel.execute("pass")
        samples = sampled(sides, seconds)
    middle = {name: median(times) for name, times in samples.items()}
    for name, title in (("http", "`pass` over HTTP"), ("call", "`pass` over a WebSocket call")):
        least = f"{name} bytes, hand-off"
        ratio = middle[name] / middle[least]
        report.add(title, microseconds(samples[name]), f"{ratio:.2f} x bare", "at most 2 x", ratio <= 2)
        report.add("  bare ping-pong and hand-off", microseconds(samples[least]))
        report.add("  bare ping-pong", microseconds(samples[f"{name} bytes"]))
    if "kernel" in samples:
        report.add("  ipykernel", microseconds(samples["kernel"]), f"{middle['kernel'] / middle['http']:.1f} x ours")
