"""Functions of the command window for the code that runs in it."""

import sys

import _numora_host as _host

from ._prompts import ask


def clc():
    """Clears the command window. What this evaluation printed so far is discarded."""
    _host.clc()


def home():
    """Moves the command window's cursor to the top left."""
    _host.home()


def pause(seconds=None):
    """Waits for a key, or for a number of seconds."""
    if seconds is None and _host.has_capability("notebook"):
        ask()
    elif seconds is None:
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
