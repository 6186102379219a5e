"""Events that code raises for clients."""

import _numora_host as _host

_checked_tags = set()
_OWN_TAGS = {"clear", "comm", "display", "error", "evaluation", "figure", "input", "payload", "progress", "status",
             "workspace"}


def post_event(tag, payload=None):
    """Raises an event for the clients that listen to its tag, which get {"payload": payload}.

    The tag has letters, digits and -_!~()$@ only; the payload is anything that JSON can hold, and is written at once, but
    only if anybody listens. Waits, up to ten seconds, when events come faster than they can be published.
    """
    if type(tag) is not str or tag not in _checked_tags:
        tag = _checked_tag(tag)
    if _host.hears(tag):
        _host.post_event(tag, {"payload": payload})


def _checked_tag(tag):
    import re

    if not isinstance(tag, str):
        raise TypeError("tag must be a string, not %s" % type(tag).__name__)
    tag = str.__str__(tag)
    if not re.fullmatch(r"[A-Za-z0-9\-_!~()$@]{1,200}", tag):
        raise ValueError("tag must have 1 to 200 characters, only letters, digits and -_!~()$@: %r" % tag[:200])
    if tag in _OWN_TAGS:
        raise ValueError("tag must not be %r, which the interpreter uses for its own events" % tag)
    if len(_checked_tags) < 10_000:
        _checked_tags.add(tag)
    return tag


def progress(iterable, label="", total=None, interval=0.1):
    """Goes through an iterable, and raises `progress` events on the way: one at the beginning, one at the end, and in
    between one every `interval` seconds at the most.

    Each has `id`, `label`, `done`, `total` (None when it is not known), `seconds` and `ended`.
    """
    from ._progress import progress

    return progress(iterable, label, total, interval)
