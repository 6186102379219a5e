"""What is read as it comes: the events of running code, and messages on channels."""

from __future__ import annotations

import asyncio
import re
import uuid
from typing import TYPE_CHECKING, Any, Callable, Generic, Iterable, Optional, Sequence, TypeVar

from ._inbox import Inbox
from ._session import Session
from .events import EVENTS, NOTICES, RESPONSES, Completed, Message, StreamEvent, event_from

if TYPE_CHECKING:
    from .client import Client

T = TypeVar("T")
R = TypeVar("R", bound="Reader[Any]")


class Reader(Generic[T]):
    """Something that is read with `async for`, by one task at a time. It begins with `async with`, or with the loop.

    It has a session of its own, so that one that is read slowly holds up nothing but itself.
    """

    _session: Optional[Session] = None  # also of one whose constructor has failed

    def __init__(self, client: Client, patterns: Sequence[str], inbox: Inbox) -> None:
        self._client = client
        self._patterns = patterns
        self._inbox = inbox  # which does not know the reader, so that one that nobody has any more is collected
        self._has_ended = False

    async def __aenter__(self: R) -> R:
        await self._begin()
        return self

    async def __aexit__(self, *_: object) -> None:
        await self.aclose()

    def __aiter__(self: R) -> R:
        return self

    async def __anext__(self) -> T:
        return (await self.some(1))[0]

    async def some(self, most: int) -> list[T]:
        """Waits for the next one; gives it, and up to `most` of those that have come.  Throws: StopAsyncIteration."""
        if self._session is None and not self._has_ended:
            await self._begin()
        if self._has_ended:
            raise StopAsyncIteration
        try:
            taken = [self._read(message) for message in await self._inbox.get(most)]
        except Exception:
            self._release()
            raise
        if self._is_last(taken[-1]):
            self._release()
        return taken

    async def aclose(self) -> None:
        """Reads no more; then it is unsubscribed. Code that runs goes on."""
        session = self._leave()
        if session is not None:
            await asyncio.shield(self._client.end_use(session))

    def _leave(self) -> Optional[Session]:
        """Whoever still waits is told that it has ended."""
        self._has_ended = True
        self._inbox.fail(StopAsyncIteration())
        session, self._session = self._session, None
        return session

    def _release(self) -> None:
        session = self._leave()
        if session is not None:
            self._client.give_back(session)

    def __del__(self) -> None:
        if self._session is not None:
            self._client.give_back(self._session)

    async def _begin(self) -> None:
        if self._session is not None or self._has_ended:
            return
        session = await self._client.borrow()
        try:
            await session.subscribe(self._patterns, self._inbox)
        except BaseException:
            self._client.give_back(session)
            raise
        if self._has_ended:  # left meanwhile
            return self._client.give_back(session)
        self._session = session
        try:
            await self._start(session)
        except Exception:
            self._release()
            raise  # but one that is cancelled can still be interrupted, since its code may run

    async def _start(self, session: Session) -> None:
        """Called once it is subscribed."""

    def _read(self, message: Message) -> T:
        raise NotImplementedError

    def _is_last(self, item: T) -> bool:
        return False


def _matches(pattern: str) -> Callable[[Message], bool]:
    """A session that is used again may still bring what its last reader has left."""
    channels = re.compile(re.escape(pattern).replace(r"\*\*", ".+").replace(r"\*", "[^/]+"))
    return lambda message: bool(channels.fullmatch(message.channel)) or message.channel.startswith(NOTICES)


def _is_of(request: str) -> Callable[[Message], bool]:
    return lambda message: message.request == request or message.channel.startswith(NOTICES)


class Messages(Reader[Message]):
    """What is published on channels."""

    def __init__(self, client: Client, pattern: str) -> None:
        super().__init__(client, [pattern], Inbox(_matches(pattern)))

    def _read(self, message: Message) -> Message:
        return message


class Stream(Reader[StreamEvent]):
    """The events of running code, and of no other; the last one is Completed. `request` is its name."""

    def __init__(self, client: Client, code: str, events: Iterable[str], lossy: bool,
                 capabilities: Iterable[str]) -> None:
        self.request = str(uuid.uuid4())
        super().__init__(client, [RESPONSES + "**", *(EVENTS + tag for tag in events)],
                         Inbox(_is_of(self.request), self.request))
        self._code = code
        self._options: dict[str, Any] = {"request": self.request, "prompt": 0}
        if lossy:
            self._options["lossy"] = True
        if capabilities:
            self._options["capabilities"] = list(capabilities)

    async def interrupt(self) -> None:
        """Stops what runs; if the code of this stream has not begun, it will not. Nothing when it has ended."""
        if self._session is not None:
            await self._session.request("/service/connector/v1/Interrupt", data={})

    async def _start(self, session: Session) -> None:
        # A task, so that a refusal ends the stream even if whoever began it does not wait for that any more.
        self._starting = asyncio.create_task(session.publish(self._code, self._options, self._inbox))
        error = await asyncio.shield(self._starting)
        if error:
            raise error

    def _read(self, message: Message) -> StreamEvent:
        return event_from(message)

    def _is_last(self, item: StreamEvent) -> bool:
        return isinstance(item, Completed)
