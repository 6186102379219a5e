"""The guest of notebooks, a shell of IPython, as far as the other modules know it."""

import sys
from importlib import import_module
from importlib.util import find_spec

import _numora_host as _host


def made():
    """The module of the guest, or None while there is none."""
    module = sys.modules.get("numora._ipython")
    return module if module and module.shell else None


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


def is_being_made():
    return "numora._ipython" in sys.modules


def load():
    guest = import_module("numora._ipython")
    guest.load()
    return guest
