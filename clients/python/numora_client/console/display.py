"""Shows what comes, below what was shown before or above the prompt while one types."""

from __future__ import annotations

import asyncio
import sys

from ..events import RESPONSES, Dropped, Message, event_from
from . import words
from .colours import Colours
from .editor import Editor
from .window import Window, slices

_HELD = 65_536  # characters


class Display:
    def __init__(self, window: Window, editor: Editor, colours: Colours) -> None:
        self._window, self._editor, self._colours = window, editor, colours
        self._held = ""  # the beginning of a line, while somebody types

    async def message(self, message: Message) -> None:
        """Shows what is to be shown of one."""
        channel = message.channel
        if channel == RESPONSES + "output":
            await self._show(message.data)
        elif channel == RESPONSES + "error":
            await self._show(self._colours.error(message.data), is_error=True)
        elif channel == RESPONSES + "commandwindow/clear":
            self._held = ""
            self._window.clear()
        elif channel == RESPONSES + "commandwindow/home":
            self._window.home()
        elif isinstance(event := event_from(message), Dropped):
            await self._show(self._colours.note(words.lost_text(event.bytes)))

    async def note(self, text: str) -> None:
        """A line of the console's own."""
        await self._line(self._colours.note(text))

    async def problem(self, text: str) -> None:
        await self._line(self._colours.problem(f"numora: {text}"))

    async def plain(self, text: str) -> None:
        """Lines of the console's own."""
        await self._line(text.rstrip("\n"))

    def show_held(self) -> None:
        """When nobody types."""
        rest, self._held = self._held, ""
        self._window.write(rest)

    async def settle(self) -> None:
        """Ends a line that has not ended, when nobody types."""
        self.show_held()
        self._window.begin_line()

    async def _line(self, text: str) -> None:
        if not self._editor.is_active:
            await self.settle()
        await self._show(text + "\n")

    async def _show(self, text: str, is_error: bool = False) -> None:
        if is_error and not sys.stderr.isatty():
            return self._window.error(text)
        if not self._editor.is_active:
            text, self._held = self._held + text, ""
            for part in slices(text):
                self._window.write(part)
                await asyncio.sleep(0)  # so that Ctrl-C comes between
            return
        self._held += text
        lines, newline, rest = self._held.rpartition("\n")
        if len(rest) > _HELD:
            lines, newline, rest = self._held, "\n", ""
        if newline:
            self._held = rest
            await self._editor.above(lambda: self._window.write(lines + "\n"))
