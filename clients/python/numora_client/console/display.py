"""Shows what comes, below what was shown before or above the prompt while one types."""

from __future__ import annotations

import sys
from typing import Optional

from ..events import RESPONSES, Dropped, Gap, Message, event_from
from . import words
from .colours import Colours
from .editor import Editor
from .window import Window

_HELD = 65_536  # characters
_TAIL = 4_096  # characters that are shown of what is skipped


class Display:
    def __init__(self, window: Window, editor: Editor, colours: Colours) -> None:
        self._window, self._editor, self._colours = window, editor, colours
        self._held = ""  # the beginning of a line, while somebody types
        self._tail: Optional[str] = None  # of the output that is skipped
        self._skipped = 0

    async def message(self, message: Message) -> None:
        """Shows what is to be shown of one."""
        channel = message.channel
        if self._tail is not None:
            if channel == RESPONSES + "output":
                return self._skip(message.data)
            await self.show_all()
        if channel == RESPONSES + "output":
            await self._show(message.data)
        elif channel == RESPONSES + "error":
            await self._show(self._colours.error(message.data), is_error=True)
        elif channel == RESPONSES + "commandwindow/clear":
            self._held = ""
            self._window.clear()
        elif channel == RESPONSES + "commandwindow/home":
            self._window.home()
        elif isinstance(event := event_from(message), (Dropped, Gap)) and event.bytes:
            await self._show(self._colours.note(words.lost_text(event.bytes)))

    def skip_output(self) -> None:
        """But for its last lines, until something else comes, or `show_all` is called."""
        self._tail = self._tail or ""

    async def show_all(self) -> None:
        text, self._tail = self._tail, None
        count, self._skipped = self._skipped, 0
        if count:
            await self._line(self._colours.note(words.skipped_text(count)).rstrip("\n"))
        if text:
            await self._show(text)

    def _skip(self, text: str) -> None:
        text = (self._tail or "") + text
        if len(text) > _TAIL:
            begin = text.find("\n", len(text) - _TAIL) + 1 or len(text) - _TAIL
            self._skipped += begin
            text = text[begin:]
        self._tail = text

    async def note(self, text: str) -> None:
        """A line of the console's own."""
        await self._line(self._colours.note(text))

    async def problem(self, text: str) -> None:
        await self._line(self._colours.problem(f"numora: {text}"))

    async def plain(self, text: str) -> None:
        """Lines of the console's own."""
        await self._line(text.rstrip("\n"))

    def question(self) -> str:
        """Takes the line that has not ended for the question of code. To be called with the turn (see Editor)."""
        self._show_held()
        return self._window.take_question()

    def settle(self) -> None:
        """Ends a line that has not ended. To be called with the turn."""
        self._show_held()
        self._window.begin_line()

    async def end_line(self) -> None:
        """The same when it has its turn."""
        async with self._editor.turn:
            self.settle()

    def _show_held(self) -> None:
        rest, self._held = self._held, ""
        self._window.write(rest)

    async def _line(self, text: str) -> None:
        async with self._editor.turn:
            if not self._editor.is_active:
                self.settle()
            await self._print(text + "\n", False)

    async def _show(self, text: str, is_error: bool = False) -> None:
        async with self._editor.turn:
            await self._print(text, is_error)

    async def _print(self, text: str, is_error: bool) -> None:
        if is_error and not sys.stderr.isatty():
            return await self._window.print(text, is_error)
        text, self._held = self._held + text, ""
        if not self._editor.is_active:
            return await self._window.print(text)
        lines, newline, rest = text.rpartition("\n")
        if len(rest) > _HELD:
            lines, newline, rest = text, "\n", ""
        self._held = rest
        if newline:
            await self._editor.above(self._window.print(lines + "\n"))
