"""The terminal while code runs: what is printed, and what is typed ahead."""

from __future__ import annotations

import asyncio
import contextlib
import os
import re
import sys
import termios
from typing import Any, Iterator

from prompt_toolkit.utils import get_cwidth

_SEQUENCE = re.compile(r"\x1b(?:\[[0-?]*[ -/]*[@-~]|\][^\x07\x1b]*(?:\x07|\x1b\\)|[@-Z\\-_])")
_CONTROL = re.compile("[\x00-\x1a\x1c-\x1f\x7f-\x9f]")
_LINE_KEPT = 10_000  # characters of a line that has not ended
_SLICE = 16_384  # characters that are written at a time
_LFLAG, _CC = 3, 6


class Window:
    """Remembers the line that has not ended, which may be the question of code that asks for input."""

    def __init__(self) -> None:
        self._line = ""

    def write(self, text: str) -> None:
        """Blocks: while the terminal takes no more."""
        _write(1, text)
        self._note(text)

    async def print(self, text: str, is_error: bool = False) -> None:
        """The same for text of any length, without stopping what else is done meanwhile, as signs of life. What is
        an error goes to standard error, which need not be the terminal.
        """
        descriptor = 2 if is_error and not sys.stderr.isatty() else 1
        for part in slices(text):
            await asyncio.get_running_loop().run_in_executor(None, _write, descriptor, part)
            if descriptor == 1:
                self._note(part)

    def _note(self, text: str) -> None:
        _, newline, rest = text.rpartition("\n")
        self._line = (rest if newline else self._line + text)[-_LINE_KEPT:]

    def begin_line(self) -> None:
        """Ends a line that has not ended."""
        if _SEQUENCE.sub("", self._line).strip("\r"):
            _write(1, "\n")
        self._line = ""

    def clear(self) -> None:
        _write(1, "\x1b[H\x1b[2J")
        self._line = ""

    def home(self) -> None:
        _write(1, "\x1b[H")
        self._line = ""

    def take_question(self) -> str:
        """Takes the line that has not ended off the screen; an editor shows it instead, before what is typed."""
        question = _shown(self._line.rstrip("\r").rpartition("\r")[2])
        width = max(get_cwidth(_SEQUENCE.sub("", question)), 1)
        above = (width - 1) // max(columns(), 1)
        _write(1, "\r" + (f"\x1b[{above}A" if above else "") + "\x1b[J")
        self._line = ""
        return question


def _shown(text: str) -> str:
    """With spaces for tabs, and without what changes anything but colours: an editor would show it as characters."""
    text = _SEQUENCE.sub(lambda found: found[0] if found[0].endswith("m") else "", text.expandtabs())
    return _CONTROL.sub("", text)


def slices(text: str) -> Iterator[str]:
    """Text in parts that do not keep the terminal for long."""
    for begin in range(0, len(text), _SLICE):
        yield text[begin : begin + _SLICE]


def columns() -> int:
    with contextlib.suppress(OSError):
        return os.get_terminal_size(1).columns or 80
    return 80


def _write(descriptor: int, text: str) -> None:
    data = text.encode("utf-8", "replace")
    while data:
        data = data[os.write(descriptor, data) :]


class Keyboard:
    """What is typed while code runs is not shown then, but waits for the next prompt. Ctrl-C is a signal."""

    def __init__(self) -> None:
        self._before: list[Any] = []

    def __enter__(self) -> Keyboard:
        self._before = termios.tcgetattr(0)
        self.set()
        return self

    def set(self) -> None:
        """Again, as after a time in the background."""
        modes = termios.tcgetattr(0)
        modes[_LFLAG] = modes[_LFLAG] & ~(termios.ECHO | termios.ICANON) | termios.ISIG
        modes[_CC][termios.VMIN], modes[_CC][termios.VTIME] = 1, 0
        termios.tcsetattr(0, termios.TCSANOW, modes)

    def __exit__(self, *_: object) -> None:
        with contextlib.suppress(termios.error):
            termios.tcsetattr(0, termios.TCSADRAIN, self._before)
