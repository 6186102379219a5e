"""What is typed beside Python: !COMMAND, %NAME and NAME?."""

from __future__ import annotations

import dataclasses
import re
import shlex
from typing import Optional

_INSPECTED = re.compile(r"(\?{0,2})\s*([^\W\d]\w*(?:\s*\.\s*[^\W\d]\w*)*)\s*(\?{0,2})")
_END = re.compile(r"(?:exit|quit)\s*(?:\(\s*(-?\d{1,9})?\s*\))?[;\s]*")
_OF_CONSOLE = {"help", "restart", "who"}
_ALONE = _OF_CONSOLE | {"pwd"}
_LINE = re.compile(r"\s*(?:!(?:[^\n]*\\\n)*)?[^\n]*")  # one of the shell goes on after a backslash
_OF_LINES = re.compile(r"\s*%time\b")
_MODULE = "__import__('numora._commands', fromlist=['_']).%s(%s)"
NAMES = ("cd", "help", "pwd", "restart", "run", "time", "who")


@dataclasses.dataclass(frozen=True)
class Command:
    """Either `code` that runs in the interpreter, or what the console does: `action` with a `name`.

    The actions are "exit", whose name is the status, "help", "inspect", "source", "restart" and "who", and "unknown" for
    a name that is none.
    """

    code: str = ""
    action: str = ""
    name: str = ""


def is_command(text: str) -> bool:
    return text.lstrip()[:1] in ("!", "%", "?") or inspected(text) is not None


def first_of(text: str) -> tuple[str, str]:
    """The command that is its first line, and the lines after it; all of it, if that is code or takes all lines."""
    found = _LINE.match(text)
    line = found[0] if found else ""
    return (line, text[len(line) + 1 :]) if is_command(line) and not _OF_LINES.match(line) else (text, "")


def inspected(text: str) -> Optional[Command]:
    found = _INSPECTED.fullmatch(text.strip())
    marks = found and (found[1] or found[3])
    if not found or not marks or (found[1] and found[3]):
        return None
    return Command(action="source" if marks == "??" else "inspect", name=re.sub(r"\s", "", found[2]))


def command_from(text: str) -> Command:
    """What a block of text asks for.  Throws: ValueError for arguments that are wrong."""
    line = text.strip()
    if ends := _END.fullmatch(line):
        return Command(action="exit", name=ends[1] or "0")
    if line.startswith("!"):
        return _call("shell", line[1:].strip())
    if line.startswith("%"):
        return _named(*(re.split(r"\s+", line[1:], maxsplit=1) + [""])[:2])
    if line in ("?", "??"):
        return Command(action="help")
    return inspected(text) or Command(code=text)


def _named(name: str, rest: str) -> Command:
    if name in _ALONE and rest:
        raise ValueError(f"%{name} takes no argument")
    if name in _OF_CONSOLE:
        return Command(action=name)
    if name == "time":
        return _call("measure", rest)
    if name == "pwd":
        return _call("print_folder")
    if name == "cd":
        return _call("change_folder", rest)
    if name == "run":
        words = shlex.split(rest)
        if not words:
            raise ValueError("%run must be followed by a file")
        return _call("run_file", words[0], words[1:])
    return Command(action="unknown", name=name)


def _call(function: str, *arguments: object) -> Command:
    return Command(code=_MODULE % (function, ", ".join(map(repr, arguments))))
