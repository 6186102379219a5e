"""Reads what is typed: blocks of code, and answers to code that asks."""

from __future__ import annotations

import asyncio
import importlib
import os
import sys
from typing import Awaitable, Callable, Optional

from prompt_toolkit.application import in_terminal
from prompt_toolkit.completion import Completer
from prompt_toolkit.formatted_text import ANSI, FormattedText
from prompt_toolkit.history import DummyHistory, History, InMemoryHistory
from prompt_toolkit.input import Input
from prompt_toolkit.input.typeahead import get_typeahead, store_typeahead
from prompt_toolkit.keys import Keys
from prompt_toolkit.layout.processors import Processor, TabsProcessor, Transformation, TransformationInput
from prompt_toolkit.lexers import DynamicLexer, Lexer
from prompt_toolkit.output import ColorDepth
from prompt_toolkit.output.vt100 import Vt100_Output
from prompt_toolkit.data_structures import Size
from prompt_toolkit.shortcuts import PromptSession
from prompt_toolkit.styles import Style

from .keys import answer_keys, block_keys, secret_keys

_STYLE = Style.from_dict({"of-code": "ansigreen bold", "of-block": "ansigreen"})


class Discarded(Exception):
    """Ctrl-C was pressed instead of Enter. (Of a KeyboardInterrupt a task ends its loop.)"""


class _Hidden(Processor):
    """Shows nothing, not even how much there is."""

    def apply_transformation(self, transformation_input: TransformationInput) -> Transformation:
        return Transformation([], source_to_display=lambda _: 0, display_to_source=lambda _: 0)


class Editor:
    """One prompt at a time. Ctrl-C ends it with Discarded, Ctrl-D at an empty one with EOFError."""

    def __init__(self, completer: Completer, history: History, has_colours: bool) -> None:
        self._completer, self._has_colours = completer, has_colours
        self._lexer: Optional[Lexer] = None
        self._output = _output(has_colours)
        self._blocks = self._session(history, multiline=True, key_bindings=block_keys(), completer=completer,
                                     lexer=DynamicLexer(lambda: self._lexer), enable_history_search=True,
                                     prompt_continuation=_continuation, enable_open_in_editor=True,
                                     input_processors=[TabsProcessor(char1=" ", char2=" ")])
        self._answers: Optional[PromptSession[str]] = None
        self._secrets: Optional[PromptSession[str]] = None
        self.is_active = False
        self.is_pressed = False  # Ctrl-C, after the line that was entered last
        self.turn = asyncio.Lock()  # of whoever writes to the terminal, and of a prompt until it is there

    async def block(self, settle: Callable[[], None]) -> str:
        """`settle` is called before, when it has its turn."""
        def prompt() -> FormattedText:
            settle()
            return FormattedText([("class:of-code", ">>> ")])

        return await self._read(self._blocks, prompt)

    async def answer(self, question: Callable[[], str], is_shown: bool, is_code: bool) -> str:
        """Answers can be recalled while the session lasts, those that are not shown never."""
        def prompt() -> ANSI:
            return ANSI(question())

        if not is_shown:
            self._secrets = self._secrets or self._session(DummyHistory(), input_processors=[_Hidden()],
                                                           key_bindings=secret_keys())
            return await self._read(self._secrets, prompt)
        self._answers = self._answers or self._session(InMemoryHistory())
        self._answers.completer = self._completer if is_code else None
        return await self._read(self._answers, prompt)

    async def above(self, writing: Awaitable[None]) -> None:
        """Waits for it with the prompt off the screen; it ends at the beginning of a line."""
        async with in_terminal():
            await writing

    async def load_lexer(self) -> None:
        """Colours code from now on, where that is possible. It takes its time, for which nobody should wait."""
        if self._has_colours:
            self._lexer = await asyncio.get_running_loop().run_in_executor(None, _python_lexer)
            self._blocks.app.invalidate()

    async def _read(self, session: PromptSession[str], prompt: Callable[[], FormattedText | ANSI]) -> str:
        await self.turn.acquire()
        has_turn = True
        self.is_pressed = False

        def end_turn() -> None:
            nonlocal has_turn
            if has_turn:
                has_turn = False
                self.turn.release()

        try:
            message = prompt()
            self.is_active = True
            text = await session.prompt_async(message, handle_sigint=False, set_exception_handler=False,
                                              pre_run=end_turn)
            self._find_press(session.input)
            return text
        except KeyboardInterrupt:
            raise Discarded from None
        finally:
            self.is_active = False
            end_turn()

    def _find_press(self, keyboard: Input) -> None:
        """In what was typed before Ctrl-C was a signal again. It discards what stands before it."""
        keys = get_typeahead(keyboard) + keyboard.read_keys()
        for at, key in enumerate(keys):
            if key.key == Keys.ControlC:
                self.is_pressed, keys = True, keys[at + 1 :]
                break
        store_typeahead(keyboard, keys)

    def _session(self, history: History, **options: object) -> PromptSession[str]:
        options.setdefault("key_bindings", answer_keys())
        return PromptSession(history=history, output=self._output, enable_suspend=True, reserve_space_for_menu=6,
                             style=_STYLE if self._has_colours else None, complete_while_typing=False,
                             include_default_pygments_style=self._has_colours, **options)  # type: ignore[arg-type]


def _continuation(width: int, _line: int, _is_wrapped: int) -> FormattedText:
    return FormattedText([("class:of-block", "... ".rjust(width))])


def _output(has_colours: bool) -> Vt100_Output:
    """Never asks the terminal where its cursor is: the answer may come when nobody reads it, and stand in the line."""
    def size() -> Size:
        try:
            found = os.get_terminal_size(1)
        except OSError:
            return Size(rows=24, columns=80)
        return Size(rows=found.lines or 24, columns=found.columns or 80)

    depth = None if has_colours else ColorDepth.DEPTH_1_BIT
    return Vt100_Output(sys.stdout, size, term=os.environ.get("TERM"), default_color_depth=depth, enable_cpr=False)


def _python_lexer() -> Optional[Lexer]:
    try:
        from prompt_toolkit.lexers import PygmentsLexer
        return PygmentsLexer(importlib.import_module("pygments.lexers.python").PythonLexer)
    except ImportError:
        return None
