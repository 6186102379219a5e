"""Functions of the command window for the code that runs in it."""

import sys

import _numora_host as _host

__all__ = [
    "MissingCapabilityError",
    "clc",
    "complete",
    "history",
    "home",
    "inspect",
    "is_complete",
    "keyboard",
    "pause",
    "post_event",
    "progress",
    "require",
    "workspace",
]


def clc():
    """Clears the command window. What this evaluation printed so far is discarded."""
    _host.clc()


def home():
    """Moves the command window's cursor to the top left."""
    _host.home()


def pause(seconds=None):
    """Waits for a key, or for a number of seconds."""
    if seconds is None:
        _host.read_key()
    else:
        import time

        time.sleep(seconds)


def keyboard():
    """Hands the prompt to the user, in the variables of the caller, until exit() or end of input."""
    import code

    frame = sys._getframe(1)
    scope = frame.f_globals
    if frame.f_locals is not scope:
        scope = {**scope, **frame.f_locals}
    ps1, sys.ps1 = sys.ps1, "K>> "
    try:
        code.InteractiveConsole(scope, "<keyboard>").interact(banner="", exitmsg="")
    except SystemExit:
        pass
    finally:
        sys.ps1 = ps1


class MissingCapabilityError(RuntimeError):
    """The client of the running request cannot do what a function needs.

    `identifier` says so to programs, also to those that get the error as a fault: it is the `faultId` of its condition.
    """

    def __init__(self, identifier, message):
        super().__init__(message)
        self.identifier = identifier


def require(capability):
    """Called by a function that needs the client to have a capability, such as "figures".

    Raises MissingCapabilityError if the client has said what it can do and this is not among it.
    """
    if not isinstance(capability, str):
        raise TypeError("capability must be text, not %s" % type(capability).__name__)
    missing = _host.missing_capability(capability, _function_of(sys._getframe(1)))
    if missing:
        raise MissingCapabilityError(*missing)


def _function_of(frame):
    """The name of the function that runs in a frame, or in which its lambda or comprehension does; None if there is none."""
    while frame is not None and not str(frame.f_globals.get("__name__")).startswith("_numora_"):
        name = frame.f_code.co_name
        if not name.startswith("<"):
            return name
        frame = frame.f_back
    return None


# --- events for clients ----------------------------------------------------------------------------------------------

_checked_tags = set()


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
        raise TypeError("a tag is text, not %s" % type(tag).__name__)
    tag = str.__str__(tag)
    if not re.fullmatch(r"[A-Za-z0-9\-_!~()$@]{1,200}", tag):
        raise ValueError("a tag has up to 200 letters, digits and -_!~()$@ only: %r" % tag[:200])
    if tag in ("figure", "progress", "status", "workspace"):
        raise ValueError("the interpreter's own events have the tag %r" % tag)
    if len(_checked_tags) < 10_000:
        _checked_tags.add(tag)
    return tag


def progress(iterable, label="", total=None, interval=0.1):
    """Goes through an iterable, and raises `progress` events on the way: one at the beginning, one at the end, and in
    between one every `interval` seconds at the most.

    Each has `id`, `label`, `done`, `total` (None when it is not known), `seconds` and `ended`.
    """
    import _numora_runtime

    return _numora_runtime.events().progress(iterable, label, total, interval)


# --- for clients, while other code runs ------------------------------------------------------------------------------


def complete(code, cursor):
    """Completes the word before the cursor, a position in UTF-16 code units.

    Returns {"matches": [...], "start": n, "end": n}: each match may replace what is between start and end.
    """
    return _aside("complete", code, cursor)


def inspect(name):
    """Describes what a dotted name stands for.

    Returns {"found": True, "name", "type", "signature", "doc", "source_file", "line", "text"}, or {"found": False}.
    """
    return _aside("inspect", name)


def workspace():
    """Lists the variables of the user, each as {"name", "class", "shape", "bytes", "text"}."""
    return _aside("workspace")


def is_complete(code):
    """Tells whether code can be run or more lines are to be awaited.

    Returns {"status": "complete", "incomplete" or "invalid", "indent": what the next line begins with}.
    """
    return _aside("is_complete", code)


def history(n=None):
    """Lists the last n evaluations, or all that are kept, oldest first, each as {"number", "code"}."""
    return _aside("history", n)


def _aside(name, *args):
    """Calls one of the tools out of reach of the code that it interrupts: its debugger and its recursion limit."""
    import _numora_runtime

    trace, limit = sys.gettrace(), sys.getrecursionlimit()
    sys.setrecursionlimit(limit)  # fails where it could not be set back afterwards: on the last level
    try:
        if callable(trace):
            sys.settrace(None)
        sys.setrecursionlimit(limit + 1000)
        return getattr(_numora_runtime.tools(), name)(*args)
    finally:
        sys.setrecursionlimit(limit)
        if callable(trace):
            sys.settrace(trace)
