"""From the start of the process to the first answer, and what an idle process keeps in memory."""

import contextlib
import time

from report import median
from servers import Kernel, Numora
from wires import first_eval

RUNS, IDLE_SECONDS = 9, 5


def start_numora(build):
    server = Numora(build)
    try:
        first_eval(server.port, server.token)
    except BaseException:
        server.__exit__()
        raise
    return server


def start_kernel():
    kernel = Kernel()
    try:
        kernel.execute("6 * 7")
    except BaseException:
        kernel.__exit__()
        raise
    return kernel


def timed(start):
    server = start()
    seconds = time.perf_counter() - server.begin
    with server:
        return seconds


def milliseconds(times):
    return f"p50 {median(times) * 1e3:.0f} ms, most {max(times) * 1e3:.0f} ms"


def measure_starts(build, _, report, missing):
    ours, theirs = [], []
    for number in range(RUNS):
        ours.append(timed(lambda: start_numora(build)))
        if "Kernel" not in missing and number % 3 == 0:
            theirs.append(timed(start_kernel))
    ratio = f"{median(theirs) / median(ours):.1f} x faster" if theirs else ""
    report.add("start to the first answer", milliseconds(ours), ratio, "under 100 ms", median(ours) < .1)
    if theirs:
        report.add("  ipykernel", milliseconds(theirs))


def measure_memory(build, _, report, missing):
    with contextlib.ExitStack() as stack:
        servers = [stack.enter_context(start_numora(build))]
        if "Kernel" not in missing:
            servers.append(stack.enter_context(start_kernel()))
        at_first = [server.memory() for server in servers]
        time.sleep(IDLE_SECONDS)
        idle = [server.memory() for server in servers]
    texts = [f"{first:.1f} MiB, idle {later:.1f} MiB" for first, later in zip(at_first, idle)]
    ratio = f"{idle[1] / idle[0]:.1f} x less" if len(idle) > 1 else ""
    report.add("memory after the first answer", texts[0], ratio, "under 35 MiB", max(at_first[0], idle[0]) < 35)
    if len(texts) > 1:
        report.add("  ipykernel", texts[1])
