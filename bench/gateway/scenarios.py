"""Runs scenarios, one after the other."""

import gc
import signal
import sys


def run(names, measure, report):
    """Calls `measure` with each name, and prints the report. Whether one has failed."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # servers are ended on the way out
    gc.disable()
    failed = False
    for name in names:
        print(f"{name} ...", file=sys.stderr, flush=True)
        try:
            measure(name)
        except Exception as error:  # the next one is measured all the same
            failed = True
            report.note(f"{name} FAILED: {type(error).__name__} {error}")
        gc.collect()
    report.print()
    return failed
