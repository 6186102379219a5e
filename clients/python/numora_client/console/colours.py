"""Colours of errors and of what the console itself says."""

from __future__ import annotations

import os
import re

_RED, _BOLD_RED, _CYAN, _DIM, _END = "\x1b[31m", "\x1b[1;31m", "\x1b[36m", "\x1b[2m", "\x1b[0m"
_TRACEBACK = re.compile(r"""(?mx)^(?:
    (?P<head>[ ]*\|?[ ]*(?:Exception[ ])?(?:Group[ ])?Traceback[ ]\(most[ ]recent[ ]call[ ]last\):) |
    (?P<place>[ ]*\|?[ ]*File[ ]"[^"\n]*",[ ]line[ ]\d+(?:,[ ]in[ ][^\n]*)?) |
    (?P<marks>[ ]{2,}[~^]+) |
    (?P<error>(?:[^\W\d][\w.]*(?:Error|Exception|Warning|Interrupt|Exit|Iteration|Fault))(?=:|$))
)""")


def are_wanted(flag: bool) -> bool:
    """Whether there are to be colours, with the flag of the command line."""
    return flag and not os.environ.get("NO_COLOR") and os.environ.get("TERM", "dumb") != "dumb"


class Colours:
    """None, when they are not wanted."""

    def __init__(self, wanted: bool) -> None:
        self.wanted = wanted

    def error(self, text: str) -> str:
        """Text of an error: tracebacks get colours, anything else stays as it is."""
        return _TRACEBACK.sub(_coloured, text) if self.wanted and "\x1b" not in text else text

    def note(self, text: str) -> str:
        """What the console says by itself."""
        return f"{_DIM}{text}{_END}" if self.wanted else text

    def problem(self, text: str) -> str:
        return f"{_BOLD_RED}{text}{_END}" if self.wanted else text


def _coloured(found: re.Match[str]) -> str:
    colour = {"head": _RED, "place": _CYAN, "marks": _RED, "error": _BOLD_RED}[found.lastgroup or "head"]
    return f"{colour}{found[0]}{_END}"
