"""Completion by the interpreter, also while that runs other code."""

from __future__ import annotations

import asyncio
from typing import Any, AsyncGenerator, Awaitable, Callable, Iterable

from prompt_toolkit.completion import CompleteEvent, Completer, Completion
from prompt_toolkit.document import Document

from ..errors import NumoraError
from .commands import NAMES

_TIME = 5.0  # seconds after which nobody waits for it any more

Call = Callable[..., Awaitable[Any]]


class InterpreterCompleter(Completer):
    """`call` calls a function of the interpreter, inside running code. Typing goes on meanwhile."""

    def __init__(self, call: Call) -> None:
        self._call = call

    def get_completions(self, document: Document, complete_event: CompleteEvent) -> Iterable[Completion]:
        return []

    async def get_completions_async(self, document: Document,
                                    complete_event: CompleteEvent) -> AsyncGenerator[Completion, None]:
        before = document.text_before_cursor
        if before.startswith("%") and " " not in before:
            for name in NAMES:
                if name.startswith(before[1:]):
                    yield Completion(name, 1 - len(before))
            return
        try:
            found = await asyncio.wait_for(self._call("numora.complete", before, _units(before)), _TIME)
            start = _index(before, found["start"]) - len(before)
            matches = list(found["matches"])
        except (NumoraError, asyncio.TimeoutError, KeyError, TypeError):
            return
        for match in matches:
            yield Completion(match, start)


def _units(text: str) -> int:
    return len(text.encode("utf-16-le", "surrogatepass")) // 2


def _index(text: str, units: int) -> int:
    return len(text.encode("utf-16-le", "surrogatepass")[: 2 * units].decode("utf-16-le", "replace"))
