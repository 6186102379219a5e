"""What clients are told of: changed variables, and progress."""

import itertools
import operator
import time

import _numora_host as _host
import _numora_runtime as _runtime

# --- workspace -------------------------------------------------------------------------------------------------------

_known = {}  # name -> (mark, class, shape)


def _mark(value):
    """Tells a value from the one that the variable had before, without keeping large ones alive."""
    kind = type(value)
    if kind in (float, complex):
        return repr(value)  # NaN equals itself there
    if kind in (bool, int, type(None)) or kind is str and len(value) <= 1000:
        return value
    return id(value)


def announce_workspace():
    """Raises the event of the variables that are new, changed or gone since the last time."""
    global _known
    now, changes = {}, {"added": [], "changed": [], "removed": []}
    for name, value, class_name, shape in _runtime.tools().variables():
        now[name] = (_mark(value), class_name, shape)
        if now[name] != _known.get(name):
            row = {"name": name, "class": class_name, "shape": shape}
            changes["changed" if name in _known else "added"].append(row)
    changes["removed"] = [name for name in _known if name not in now]
    _known = now
    if any(changes.values()):
        _host.post_event("workspace", changes)


# --- progress --------------------------------------------------------------------------------------------------------

_numbers = itertools.count(1)


def progress(iterable, label, total, interval):
    if total is None:
        total = operator.length_hint(iterable, -1)
        total = None if total < 0 else total
    return _progress(iterable, str(label), total, interval)


def _progress(iterable, label, total, interval):
    number, begin, done = next(_numbers), time.monotonic(), 0

    def announce(ended):
        if _host.hears("progress"):
            _host.post_event("progress", {"id": number, "label": label, "done": done, "total": total,
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
