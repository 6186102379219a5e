"""Functions of the command window for the code that runs in it, and for clients while other code runs."""

from ._capabilities import MissingCapabilityError, require
from ._clients import complete, history, inspect, is_complete, rows, state, workspace
from ._command_window import clc, home, keyboard, pause
from ._configuration import configure
from ._events import post_event, progress
from ._rich import clear_output, display, update_display

__all__ = [
    "MissingCapabilityError",
    "clc",
    "clear_output",
    "complete",
    "configure",
    "display",
    "history",
    "home",
    "inspect",
    "is_complete",
    "keyboard",
    "pause",
    "post_event",
    "progress",
    "require",
    "rows",
    "state",
    "update_display",
    "workspace",
]

if __spec__.origin == "frozen":  # CPython takes such a package for a part of its own library
    __file__ = "<numora>"
    __path__.clear()
