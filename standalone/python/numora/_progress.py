"""Tells clients how far a loop has come."""

import itertools
import operator
import time

import _numora_host as _host

_numbers = itertools.count(1)


def progress(iterable, label, total, interval):
    if total is None:
        total = operator.length_hint(iterable, -1)
        total = None if total < 0 else total
    return _announced(iterable, str(label), total, interval)


def _announced(iterable, label, total, interval):
    number, begin, done = next(_numbers), time.monotonic(), 0

    def announce(ended):
        if _host.hears("progress"):
            _host.raise_event("progress", {"id": number, "label": label, "done": done, "total": total,
                                           "seconds": time.monotonic() - begin, "ended": ended})

    announce(False)
    due = begin + interval
    try:
        for item in iterable:
            yield item
            done += 1
            if time.monotonic() >= due:
                due = time.monotonic() + interval
                announce(False)
    finally:
        announce(True)
