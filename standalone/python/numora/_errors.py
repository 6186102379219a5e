"""Describes the errors that end evaluations."""

import sys

import _numora_host as _host

from ._capabilities import identifier
from ._texts import shortened, text_of

of_cell = None  # the error that was described last for a notebook
hidden = []  # folders of files that are not shown to notebooks

_NO_DETAILS = ([], None, [], None, False)


def report(error):
    """Describes the exception that ended an evaluation.

    Returns (kind, type name, message, text to show, frames, suggestion or None, causes, builtin or None, is extension):
    kind is "exit" for an orderly end without an error, "interrupt" or "error"; frames are (file, function, line); each
    cause is (type name, message, frames); the builtin function is the one in which it arose, and may be that of an
    extension.
    """
    global of_cell
    name = type(error).__name__
    is_cell = _host.has_capability("notebook")
    of_cell = error if is_cell else None
    bdb = sys.modules.get("bdb")
    if bdb and isinstance(error, bdb.BdbQuit):
        if not getattr(error, "is_interrupt", False):
            return ("exit", name, "", "", *_NO_DETAILS)
        return ("interrupt", "KeyboardInterrupt", "", "KeyboardInterrupt\n", *_NO_DETAILS)
    if isinstance(error, SystemExit):
        if error.code in (None, 0) and not is_cell:  # the cells after one that ends so are not to run
            return ("exit", name, "", "", *_NO_DETAILS)
        message = "" if error.code is None else text_of(error.code) or ""
        return ("error", name, message, ("SystemExit: %s" % message).rstrip(": ") + "\n", *_NO_DETAILS)

    sys.last_type, sys.last_value, sys.last_traceback = type(error), error, error.__traceback__
    message, text = _message_and_text(error)
    kind = "interrupt" if isinstance(error, KeyboardInterrupt) else "error"
    suggestion = _suggestion(error) if isinstance(error, (ImportError, AttributeError, NameError)) else None
    return (kind, _type_name(error), message, shortened(text), _frames(error), suggestion, *_sources(error))


def _message_and_text(error):
    """The message of an error, and what is shown of it."""
    import traceback

    if isinstance(error, SyntaxError) and error.text is None and error.filename:
        import linecache

        error.text = linecache.getline(error.filename, error.lineno or 0)
    # The text is asked for once, and an interrupt of that leaves the call stack to be shown.
    message = text_of(error)
    try:
        if message is None:
            raise RuntimeError
        described = traceback.TracebackException.from_exception(error, compact=True)
        _hide_own_frames(described)
        return message, "".join(described.format())
    except Exception:
        message = message or "<the message is not available>"
        stack = "".join(traceback.format_tb(error.__traceback__))
        return message, "Traceback (most recent call last):\n%s%s: %s\n" % (stack, type(error).__name__, message)


def _hide_own_frames(described):
    """Takes the program's own modules, and code that calls them for it, out of the call stacks that are shown: the code
    at fault is the user's.
    """
    own = ("<numora.", *(hidden if _host.has_capability("notebook") else ()))
    while described is not None:
        described.stack[:] = [f for f in described.stack if not f.filename.startswith(own)
                              and not (f.line or "").startswith("__import__('numora._")]
        for part in described.exceptions or ():
            _hide_own_frames(part)
        described = described.__cause__ or described.__context__


def _frames(error):
    import traceback

    return [(f.filename, f.name, f.lineno or 0) for f in traceback.extract_tb(error.__traceback__)[-100:]]


def _suggestion(error):
    try:
        from ._suggestions import suggestion

        return suggestion(error)
    except BaseException:
        return None  # looking for one runs code of the object at fault


def _type_name(error):
    return identifier(error).removeprefix("NUMORA:") or type(error).__name__


def _sources(error):
    """The causes of an error and the builtin function in which it arose, as far as they can be told."""
    try:
        from ._origins import causes

        found = [(_type_name(cause), text_of(cause) or "", _frames(cause)) for cause in causes(error)]
    except BaseException:
        found = []
    try:
        from ._origins import origin

        return (found, *origin(error))
    except BaseException:
        return (found, None, False)


def interrupt_alone():
    """An error that is shown as KeyboardInterrupt, without where it arose."""
    import bdb

    interrupt = bdb.BdbQuit()
    interrupt.is_interrupt = True
    return interrupt


class HostError(RuntimeError):
    """An error that the program itself has raised, with its identifier."""


def set_last_error(errors):
    """Makes the first of the errors, (identifier, message), the last one that there was; each led to the one before it."""
    last = None
    for name, message in reversed(errors):
        error = HostError(message)
        error.identifier = name
        error.__cause__ = last
        last = error
    sys.last_type, sys.last_value, sys.last_traceback = type(last), last, None
