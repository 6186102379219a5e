"""What objects offer for completion by methods of their own.

These are Python code of anybody. They are called while no other code runs in their thread, so that there is none that
holds a lock or is halfway through a change, and nothing that they would hold up. An interrupt ends them.
"""

import sys
import types
from itertools import islice

_LIMIT = 10_000  # texts of an answer


def offered(method, *owner):
    """The texts that a method gives; nothing where it may not be called or fails."""
    if type(method) is not types.FunctionType or not _is_alone():
        return []
    try:
        return [text for text in islice(method(*owner), _LIMIT) if type(text) is str]
    except (Exception, SystemExit):
        return []


def _is_alone():
    """Whether nothing but this package is on the stack."""
    frame = sys._getframe()
    while frame is not None and frame.f_globals.get("__package__") == "numora":
        frame = frame.f_back
    return frame is None
