"""The guest of notebooks, a shell of IPython, as far as the other modules know it."""

import sys
from importlib import import_module
from importlib.util import find_spec

import _numora_host as _host

_module = None  # of the guest, which code may take out of sys.modules
_is_being_made = False


def made():
    """The module of the guest, or None while there is none."""
    return _module


def of_client():
    """The same, for a client that is a notebook; others see nothing of it."""
    return made() if _host.has_capability("notebook") else None


def shell_of_client():
    """What libraries ask for by `get_ipython`."""
    guest = of_client()
    return guest.shell if guest else None


def is_available():
    """Whether there can be one."""
    return sys.modules["IPython"] is not None if "IPython" in sys.modules else find_spec("IPython") is not None


def is_begun():
    """Whether there is one, or will be in a moment."""
    return _is_being_made or _module is not None


def load():
    """Makes the guest, once. An interrupt waits: Python would drop packages that are half imported, but none of their
    modules, and they could never be imported again.
    """
    global _module, _is_being_made
    if _module is None:
        from ._interrupts import held

        _is_being_made = True
        try:
            with held():
                module = import_module("numora._ipython")
                module.load()
                _module = module
        finally:
            _is_being_made = False
    return _module
