"""Reads what is typed at prompts, and tells who asks."""

import builtins
import os
import sys

import _numora_host as _host

from ._errors import interrupt_alone

# The prompts at which a line can be read, numbered as the host numbers them.
_DEBUG, _INPUT, _KEYBOARD = 1, 2, 3


_TEXT_LIMIT = 10_000  # characters of what is asked
_read = builtins.input
_is_echoed = True


class StdinNotImplementedError(NotImplementedError):
    """Code asks for input where nobody answers."""

    __module__ = "numora"


def ask(prompt="", /):
    text = str(prompt)
    if _host.has_capability("notebook"):  # which shows the text with the question
        return _read()
    return _read(text)


ask.__name__ = ask.__qualname__ = "input"
ask.__module__ = "builtins"
ask.__doc__ = _read.__doc__


def _requester(frame):
    """Who asks for a line: a debugger, an interactive console of Python's own, or other code."""
    module = frame.f_globals.get("__name__")
    if module == "code":
        return _KEYBOARD
    bdb = sys.modules.get("bdb")
    if bdb and isinstance(frame.f_locals.get("self"), bdb.Bdb):
        return _DEBUG
    return _INPUT


def read_line(frame):
    """Reads a line for the code that runs in the frame."""
    require_answers()
    text = ""
    if frame.f_code is ask.__code__:
        text = frame.f_locals["text"][-_TEXT_LIMIT:]
        frame = frame.f_back or frame
    prompt = _requester(frame)
    global _is_echoed
    _is_echoed = frame.f_code is not ask_for_password.__code__
    try:
        return _host.read_line(prompt, _is_echoed, text)
    except KeyboardInterrupt:
        if prompt != _DEBUG:
            raise
    raise interrupt_alone()  # the debugger would take a KeyboardInterrupt for itself and ask again


def require_answers():
    """Raises an error in code of a notebook that does not answer questions."""
    if _host.has_capability("notebook") and not _host.has_capability("stdin"):
        raise StdinNotImplementedError("The client of this code does not answer questions.")


def is_echoed():
    """Whether what is typed where code waits for input is to be shown."""
    return _is_echoed


def open_debugger(*args, **kwargs):
    """As Python's own breakpoint(), at the prompt of the command window."""
    if os.environ.get("PYTHONBREAKPOINT"):
        return sys.__breakpointhook__(*args, **kwargs)
    import pdb

    # Interrupts end the evaluation; they do not open the debugger again.
    pdb.Pdb(nosigint=True).set_trace(sys._getframe(1))


def ask_for_password(prompt="Password: ", stream=None):
    """Takes the place of getpass.getpass. Clients are told not to show what is typed."""
    return ask(prompt)
