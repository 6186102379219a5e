"""Messages that wait for their reader."""

from __future__ import annotations

import asyncio
import collections
from typing import Callable, Optional

from .errors import InterpreterDied
from .events import COMPLETION, Message

_ROOM = 8 << 20  # characters that wait before the server is asked for less, unless there is to be less room
_MOST = 64 << 20  # before it is asked for nothing
_MESSAGE = 256  # characters that each message counts beside its own


class Inbox:
    """Nothing is dropped: when it is full, its session asks for no more (see Session).

    `accepts` chooses among what the session gets; `request` names the code whose events they are, if that is what they
    are; when the interpreter dies, whoever reads those gets the error. Threads: those of one event loop.
    """

    def __init__(self, accepts: Callable[[Message], bool], request: Optional[str] = None, room: int = 0) -> None:
        self._accepts = accepts
        self._room = room or _ROOM
        self.request = request
        self._messages: collections.deque[tuple[Message, int]] = collections.deque()
        self._size = 0
        self._error: Optional[Exception] = None
        self._arrival = asyncio.Event()
        self.room = asyncio.Event()
        self.room.set()

    @property
    def is_full(self) -> bool:
        return self._size >= _MOST

    @property
    def size(self) -> int:
        """In characters, about."""
        return self._size

    def put(self, message: Message, size: int) -> None:
        if not self._accepts(message):
            return
        if self.request and message.death:
            if message.channel == COMPLETION:
                self.fail(InterpreterDied(message.death))
            return  # the text of the error is the sentence
        self._messages.append((message, size + _MESSAGE))
        self._size += size + _MESSAGE
        if self._size >= self._room:
            self.room.clear()
        self._arrival.set()

    def fail(self, error: Exception) -> None:
        """Whoever reads gets the error after what has come; of several the first."""
        self._error = self._error or error
        self._arrival.set()

    async def get(self, most: int) -> list[Message]:
        """Waits for the next message; gives it, and up to `most` in all."""
        while not self._messages:
            if self._error:
                raise self._error
            self._arrival.clear()
            await self._arrival.wait()
        taken: list[Message] = []
        while self._messages and len(taken) < most:
            message, size = self._messages.popleft()
            self._size -= size
            taken.append(message)
        if self._size < self._room:
            self.room.set()
        return taken
