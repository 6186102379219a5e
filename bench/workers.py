"""What it costs that interpreters are processes of their own, beside `numora serve --in-process` in the same run.

    /usr/bin/python3 bench/workers.py build/release [--seconds 10] [--only round_trips,memory]

docs/benchmarks.md says what the numbers are. The exit status is 1 when a scenario failed, not for a missed goal."""

import argparse
import contextlib
import json
import os
import random
import signal
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "gateway"))
from report import Report, median, microseconds, percentile  # noqa: E402
from round_trips import evaluated_over_http, sampled  # noqa: E402
from scenarios import run  # noqa: E402
from servers import Numora  # noqa: E402
from streaming import MEGABYTES, Stream  # noqa: E402
from wires import BayeuxClient, connect, post, read_head  # noqa: E402

EVAL, RESTART = "/connector/v1/Eval", "/interpreters/default/restart"
STREAMS, INTERRUPTS, DEATHS, RESTARTS, IDLE, IDLE_SECONDS = 7, 50, 30, 15, 20, 10


def both(stack, build):
    """A server with workers and one without, both of them warm."""
    servers = [stack.enter_context(Numora(build, *options)) for options in ((), ("--in-process",))]
    for server in servers:
        evaluate(server, "pass")
    return servers


def ask(server, path, message):
    """A good answer of one request on a connection of its own."""
    peer, _, reply = post(server.port, server.token, path, message)
    peer.close()
    return json.loads(reply.partition(b"\r\n\r\n")[2] or b"{}")


def evaluate(server, code, path=""):
    return ask(server, path + EVAL, {"mcode": code, "uuid": "1"})["responseStr"]


def children(pid):
    """Of all of its threads."""
    found = []
    for thread in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{thread}/children", encoding="ascii") as file:
            found += map(int, file.read().split())
    return found


def milliseconds(times):
    return f"p50 {median(times) * 1e3:.1f} ms, most {max(times) * 1e3:.1f} ms"


def round_trips(build, seconds, report):
    with contextlib.ExitStack() as stack:
        names = "workers", "in process"
        sides = {name: evaluated_over_http(server)[0].round_trip for name, server in zip(names, both(stack, build))}
        samples = sampled(sides, seconds)
    more = (median(samples["workers"]) - median(samples["in process"])) * 1e6
    allowed = 30 if os.cpu_count() > 1 else 15
    report.add("`pass` over HTTP", microseconds(samples["workers"]), f"+ {more:.0f} us", f"in process + {allowed} us",
               more <= allowed)
    report.add("  in process", microseconds(samples["in process"]))


def interrupts(build, _, report):
    """Interrupts while output fills the way to a client that has stopped to read, so that nobody waits for it."""
    code = "while True:\n    try:\n        while True: print('x' * 1000)\n    except KeyboardInterrupt: pass"
    with contextlib.ExitStack() as stack:
        samples = []
        for server in both(stack, build):
            client = BayeuxClient(server.port, "/cometd", server.token)
            client.subscribe("/eval/response/**")
            client.send(client.envelope({"channel": "/eval/request", "data": code}))
            client.receive()
            time.sleep(3)  # it is held for gone after two
            times = []
            for _ in range(INTERRUPTS):
                time.sleep(random.random() / 10)
                begin = time.perf_counter()
                ask(server, "/connector/v1/Interrupt", {"uuid": "1"})
                times.append(time.perf_counter() - begin)
            samples.append(times)
            server.process.kill()
    report.add("interrupt to response, link full", milliseconds(samples[0]),
               f"{median(samples[0]) / median(samples[1]):.2f} x in process", "< 5 ms", median(samples[0]) < .005)
    report.add("  in process", milliseconds(samples[1]))


def streams(build, _, report):
    with contextlib.ExitStack() as stack:
        clients = [Stream(server) for server in both(stack, build)]
        runs = [[], []]
        for _ in range(STREAMS):
            for client, times in zip(clients, runs):
                times.append(client.run()[1])
    rates = [MEGABYTES / median(times) for times in runs]
    report.add("50 MB of 1 KiB lines to a WebSocket", f"{rates[0]:.0f} MB/s", f"{rates[0] / rates[1]:.2f} x in process",
               ">= 0.8 x", rates[0] >= .8 * rates[1])
    report.add("  in process", f"{rates[1]:.0f} MB/s")


def deaths(build, _, report):
    """From a signal that ends the process to the last byte of the answer to what it ran."""
    times = []
    with Numora(build) as server:
        for _ in range(DEATHS):
            ask(server, RESTART, {"force": True})
            pid = int(evaluate(server, "import os; os.getpid()"))
            body = b'{"mcode":"import time; time.sleep(60)"}'
            with connect(server.port) as peer:
                peer.sendall(f"POST {EVAL} HTTP/1.1\r\nHost: 127.0.0.1:{server.port}\r\n"
                             f"Authorization: Bearer {server.token}\r\nContent-Type: application/json\r\n"
                             f"Content-Length: {len(body)}\r\n\r\n".encode() + body)
                time.sleep(.05)
                begin = time.perf_counter()
                os.kill(pid, signal.SIGKILL)
                head, _ = read_head(peer)
                times.append(time.perf_counter() - begin)
                if not head.startswith(b"HTTP/1.1 502 "):
                    raise RuntimeError(head)
    report.add("death to its 502", milliseconds(times), "", "< 10 ms", median(times) < .01)


def restarts(build, _, report):
    times, starts = [], []
    with Numora(build) as server:
        evaluate(server, "pass")
        for _ in range(RESTARTS):
            begin = time.perf_counter()
            ask(server, RESTART, {"force": True})
            evaluate(server, "pass")
            times.append(time.perf_counter() - begin)
            with Numora(build, "--in-process") as other:
                evaluate(other, "pass")
                starts.append(time.perf_counter() - other.begin)
    report.add("restart to the first answer", milliseconds(times), f"{median(times) / median(starts):.2f} x in process",
               "< 150 ms", median(times) < .15)
    report.add("  in process: start of the server to it", milliseconds(starts))


def private_mib(pid):
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
        return sum(int(line.split()[1]) for line in file if line.startswith("Private_")) / 1024


def memory(build, _, report):
    with contextlib.ExitStack() as stack:
        with_workers, in_process = both(stack, build)
        time.sleep(2)
        worker = private_mib(*children(with_workers.process.pid))
        try:
            gateway = private_mib(with_workers.process.pid)
            report.add("private memory of the gateway", f"{gateway:.1f} MiB", "", "< 4 MiB", gateway < 4)
        except PermissionError:
            report.note("private memory of the gateway: the superuser alone can see it")
        report.add("private memory of an idle worker", f"{worker:.1f} MiB", "", "< 9 MiB", worker < 9)
        report.add("  in process: of the server", f"{private_mib(in_process.process.pid):.1f} MiB")


def processor_ns(pid):
    total = 0
    for thread in os.listdir(f"/proc/{pid}/task"):
        with contextlib.suppress(FileNotFoundError):
            with open(f"/proc/{pid}/task/{thread}/schedstat", encoding="ascii") as file:
                total += int(file.read().split()[0])
    return total


def idle(build, _, report):
    with Numora(build) as server:
        for number in range(IDLE):
            post(server.port, server.token, "/interpreters", {"id": f"w{number}"}, b"201")[0].close()
            evaluate(server, "pass", f"/interpreters/w{number}")
        time.sleep(2)
        pids = [server.process.pid, *children(server.process.pid)]
        count = len(pids) - 1
        if count < IDLE:
            raise RuntimeError(f"{count} workers instead of {IDLE}")
        begin, before = time.perf_counter(), sum(map(processor_ns, pids))
        time.sleep(IDLE_SECONDS)
        used = sum(map(processor_ns, pids)) - before
        part = used / (time.perf_counter() - begin) / 1e9 * 100 / count
    report.add(f"processor time of 100 idle workers, by {count}", f"{part * 100:.2f} % of a core", "", "< 0.5 %",
               part < .005)


SCENARIOS = {action.__name__: action for action in (round_trips, interrupts, streams, deaths, restarts, memory, idle)}


def main():
    parser = argparse.ArgumentParser(prog="bench/workers.py")
    parser.add_argument("build", help="the folder of the release build")
    parser.add_argument("--seconds", type=float, default=10, help="of round trips, for both together")
    parser.add_argument("--only", default=",".join(SCENARIOS), help="scenarios, with commas between them")
    options, report = parser.parse_args(), Report()
    return run(options.only.split(","), lambda name: SCENARIOS[name](options.build, options.seconds, report), report)


if __name__ == "__main__":
    sys.exit(main())
