"""What `numora kernel` takes beside ipykernel, in the same run.

    /usr/bin/python3 bench/kernel build/release [--only round_trips,floods]

docs/benchmarks.md says what the numbers are. Needs the release build with the targets numora and kernel_skeleton. The exit
status is 1 when a scenario failed, not for a missed goal."""

import argparse
import contextlib
import json
import os
import random
import signal
import sys
import time

import zmq

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "gateway"))
from front_end import FrontEnd, Skeleton, ours, ready, theirs  # noqa: E402
from report import Report, median, microseconds  # noqa: E402
from scenarios import run  # noqa: E402

CHUNKS, CHUNK, WARM_UP = 40, 30, 5
COMPLETIONS, INTERRUPTS, STARTS, IDLE_SECONDS = 100, 40, 9, 2
LINES, FLOODS, FLUSHED, UNFLUSHED, DISPLAYS = 50 * 1024, 5, 100, 15, 20_000
ENDLESS = {"while True: pass": "loop", "import time; time.sleep(60)": "sleep"}


def milliseconds(times):
    return f"p50 {median(times) * 1e3:.1f} ms, worst {max(times) * 1e3:.1f} ms"


@contextlib.contextmanager
def both(build):
    """Front ends of a kernel of ours and of an ipykernel, with the kernels."""
    kernels = ours(build), theirs(build)
    with ready(kernels[0]) as first, ready(kernels[1]) as second:
        yield (first, kernels[0]), (second, kernels[1])


def round_trips(build, report):
    samples = {"ours": [], "ipykernel": [], "skeleton": []}
    with both(build) as ((our_end, _), (their_end, _)), ready(Skeleton(build)) as least:
        for _ in range(CHUNKS):
            for name, end in zip(samples, (our_end, their_end, least)):
                for number in range(CHUNK):
                    begin = time.perf_counter()
                    request = end.execute("pass")
                    end.reply(request)
                    if number >= WARM_UP:
                        samples[name].append(time.perf_counter() - begin)
                    for _ in end.published(request):
                        pass
    ours_, theirs_, bare = (median(times) for times in samples.values())
    report.add("execute `pass` to its reply", microseconds(samples["ours"]), f"{theirs_ / ours_:.1f} x as fast", ">= 6 x",
               theirs_ >= 6 * ours_)
    report.add("  bare, with a hand-off", microseconds(samples["skeleton"]), f"ours {ours_ / bare:.2f} x", "<= 2 x",
               ours_ <= 2 * bare)
    report.add("  ipykernel", microseconds(samples["ipykernel"]))


def stop(end, kernel):
    """As front ends do for such a kernel."""
    if kernel.process.args[1] == "kernel":
        end.send("interrupt_request", {}, "control")
    else:
        kernel.process.send_signal(signal.SIGINT)


def completions(build, report):
    question = {"code": "zi", "cursor_pos": 2}
    with both(build) as sides:
        for code, name in ENDLESS.items():
            times, answers = [], []
            for end, kernel in sides:
                request = end.execute(code)
                end.until_it_runs(request)
                with contextlib.suppress(TimeoutError):
                    for _ in range(COMPLETIONS):
                        begin = time.perf_counter()
                        asked = end.send("complete_request", question)
                        if b'"zip"' not in end.reply(asked, seconds=2):
                            raise RuntimeError("a completion lacks zip")
                        (times if kernel is sides[0][1] else answers).append(time.perf_counter() - begin)
                stop(end, kernel)
                end.reply(request)
                for _ in end.published(request):
                    pass
            report.add(f"completion during a {name}", milliseconds(times) if times else "none", "", "< 5 ms",
                       len(times) == COMPLETIONS and median(times) < .005)
            report.add("  ipykernel", milliseconds(answers) if answers else "not before the end")


def interrupts(build, report):
    with both(build) as sides:
        for code, name in ENDLESS.items():
            samples = [], []
            for _ in range(INTERRUPTS):
                for (end, kernel), times in zip(sides, samples):
                    request = end.execute(code)
                    end.until_it_runs(request)
                    time.sleep(.02 + random.random() / 20)
                    begin = time.perf_counter()
                    stop(end, kernel)
                    end.reply(request)
                    times.append(time.perf_counter() - begin)
                    for _ in end.published(request):
                        pass
            middle, worst = median(samples[0]), max(samples[0])
            report.add(f"interrupt of a {name} to the reply", milliseconds(samples[0]), f"{median(samples[1]) / middle:.1f} x as fast",
                       "< 3, worst < 20", middle < .003 and worst < .02)
            report.add("  ipykernel", milliseconds(samples[1]))


def starts(build, report):
    times, memory = {ours: [], theirs: []}, {}
    for number in range(STARTS):
        for start in times:
            if start is theirs and number % 3:
                continue
            with start(build) as kernel, FrontEnd(kernel) as end:
                end.reply(end.execute("pass"))
                times[start].append(time.perf_counter() - kernel.begin)
                if number == 0:
                    time.sleep(IDLE_SECONDS)
                    memory[start] = kernel.memory()
    ratio = median(times[theirs]) / median(times[ours])
    report.add("start to the first reply", milliseconds(times[ours]), f"{ratio:.1f} x as fast", "< 100 ms",
               median(times[ours]) < .1)
    report.add("  ipykernel", milliseconds(times[theirs]))
    report.add("resident memory, idle", f"{memory[ours]:.1f} MiB", f"{memory[theirs] / memory[ours]:.1f} x less", "< 35 MiB",
               memory[ours] < 35)
    report.add("  ipykernel", f"{memory[theirs]:.1f} MiB")


def floods(build, report):
    code = f"line = 'x' * 1023\nfor n in range({LINES}): print(line)"
    with both(build) as sides:
        rates = [], []
        for _ in range(FLOODS):
            for (end, _), speeds in zip(sides, rates):
                begin = time.perf_counter()
                count = sum(content.count(b"\\n") for header, content in end.published(end.execute(code)) if b'"stream"' in header)
                speeds.append(LINES / 1024 / (time.perf_counter() - begin))
                if count != LINES:
                    raise RuntimeError(f"{count} lines of {LINES}")
        ours_, theirs_ = map(median, rates)
        peaks = [kernel.memory("VmHWM") for _, kernel in sides]
    report.add("50 MiB in lines of 1 KiB, to idle", f"{ours_:.0f} MiB/s", f"{ours_ / theirs_:.2f} x as fast", ">= 1.5 x",
               ours_ >= 1.5 * theirs_)
    report.add("  ipykernel", f"{theirs_:.0f} MiB/s")
    report.add("  the kernel's peak", f"{peaks[0]:.0f} MiB", f"{peaks[1] / peaks[0]:.1f} x less", "< 100 MiB", peaks[0] < 100)
    report.add("  ipykernel", f"{peaks[1]:.0f} MiB")


def prints(build, report):
    """From the clock that code prints to when the text is there: both processes read the same one."""
    with both(build) as sides:
        for title, count, pause, flush in (("print to client, flushed", FLUSHED, .02, True),
                                           ("print to client, not flushed", UNFLUSHED, .3, False)):
            code = f"import time\nfor _ in range({count}): print(time.monotonic_ns(), flush={flush}); time.sleep({pause})"
            samples = [], []
            for (end, _), times in zip(sides, samples):
                for header, content in end.published(end.execute(code)):
                    now = time.monotonic_ns()
                    if b'"stream"' in header:
                        times += [(now - int(line)) / 1e9 for line in json.loads(content)["text"].split()]
                if len(times) != count:
                    raise RuntimeError(f"{len(times)} of {count}")
            ours_, theirs_ = map(median, samples)
            is_met, goal = (ours_ <= theirs_, "<= ipykernel") if flush else (ours_ <= .15, "<= 150 ms")
            report.add(title, milliseconds(samples[0]), f"{theirs_ / ours_:.2f} x as fast", goal, is_met)
            report.add("  ipykernel", milliseconds(samples[1]))


def stuck_readers(build, report):
    code = (f"from IPython.display import display\n"
            f"for n in range({DISPLAYS}): display({{'text/plain': f'{{n:01000}}'}}, raw=True)")
    for start, name in (ours, "reader beside a stuck subscriber"), (theirs, "  ipykernel"):
        kernel = start(build)
        with ready(kernel) as end, zmq.Context.instance().socket(zmq.SUB) as stuck:
            stuck.linger, stuck.rcvhwm, stuck.rcvbuf = 0, 1, 4096
            stuck.subscribe(b"")
            stuck.connect(f"tcp://127.0.0.1:{kernel.ports['iopub']}")
            while not stuck.poll(50):
                end.run("pass")
            count, begin = 0, time.perf_counter()
            with contextlib.suppress(TimeoutError):  # the idle may be lost, too
                for header, _ in end.published(end.execute(code), 20):
                    count += b'"display_data"' in header
            seconds = time.perf_counter() - begin
        if start is ours:
            report.add(name, f"{count:,} of {DISPLAYS:,} in {seconds:.1f} s", "", "all", count == DISPLAYS)
        else:
            report.add(name, f"{count:,} of {DISPLAYS:,}")


SCENARIOS = {action.__name__: action for action in (round_trips, completions, interrupts, starts, floods, prints, stuck_readers)}


def main():
    parser = argparse.ArgumentParser(prog="bench/kernel")
    parser.add_argument("build", help="the folder of the release build")
    parser.add_argument("--only", default=",".join(SCENARIOS), help="scenarios, with commas between them")
    options, report = parser.parse_args(), Report()
    return run(options.only.split(","), lambda name: SCENARIOS[name](options.build, report), report)


if __name__ == "__main__":
    sys.exit(main())
