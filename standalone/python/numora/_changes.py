"""Tells clients which variables have changed."""

import weakref

import _numora_host as _host

from ._workspace import variables

_known = {}  # name -> (mark, class, shape)


class _StrongReference:
    """Holds a value that knows no weak references, so that its address is not used again."""

    def __init__(self, value):
        self.value = value


# Types are compared by `is`: a metaclass may have an `==` of its own, and nothing here runs code of the user's.
def _mark(value):
    """Tells a value from the one that the variable gets later."""
    kind = type(value)
    if kind is float or kind is complex:
        return repr(value)  # NaN equals itself there
    if kind is bool or kind is int or value is None or kind is str and len(value) <= 1000:
        return value
    try:
        return weakref.ref(value)
    except TypeError:
        return _StrongReference(value)


def _is_same(mark, value):
    kind = type(mark)
    if kind is weakref.ref:
        return mark() is value
    if kind is _StrongReference:
        return mark.value is value
    now = _mark(value)
    return type(now) is kind and now == mark


def announce_workspace():
    """Raises the event of the variables that are new, changed or gone since the last time."""
    global _known
    now, changes = {}, {"added": [], "changed": [], "removed": []}
    for name, value, class_name, shape in variables():
        before = _known.get(name)
        if before and before[1:] == (class_name, shape) and _is_same(before[0], value):
            now[name] = before
            continue
        now[name] = (_mark(value), class_name, shape)
        changes["changed" if before else "added"].append({"name": name, "class": class_name, "shape": shape})
    changes["removed"] = [name for name in _known if name not in now]
    if any(changes.values()):
        _host.post_event("workspace", changes)
    _known = now
