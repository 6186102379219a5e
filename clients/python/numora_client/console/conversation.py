"""What the console has with the interpreter: code, answers and interrupts one way, everything that comes the other."""

from __future__ import annotations

import uuid
from typing import TYPE_CHECKING, Optional

from .._inbox import Inbox
from .._session import Session
from ..errors import Disconnected
from ..events import NOTICES, RESPONSES, Message
from ..streams import Reader
from .words import STARTED_AGAIN

if TYPE_CHECKING:
    from ..client import Client

INTERPRETER = NOTICES + "interpreter"
_ROOM = 1 << 18  # characters that wait for the terminal, before the server is asked for less
_TEXT = (RESPONSES + "output", RESPONSES + "error")


class Conversation(Reader[Message]):
    """One session for all: the messages of the code that runs for this console, text of threads that belongs to no
    request, and what happens to the interpreter. It ends with the error of the code that runs, if that is lost.
    """

    def __init__(self, client: Client) -> None:
        super().__init__(client, [RESPONSES + "**", INTERPRETER], Inbox(self._accepts, room=_ROOM))
        self._server: Optional[str] = None  # that the last code was for

    def _accepts(self, message: Message) -> bool:
        if message.request is None:
            return message.channel in _TEXT or message.channel.startswith(NOTICES)
        return message.request == self._inbox.request

    def _read(self, message: Message) -> Message:
        return message

    async def begin(self) -> None:
        await self._begin()
        self._server = self._open().server

    @property
    def is_online(self) -> bool:
        return self._session is not None and self._session.is_online

    @property
    def backlog(self) -> int:
        """How many characters, about, wait for the terminal."""
        return self._inbox.size

    async def until_online(self) -> None:
        """Waits for a connection, for ever.  Throws: NumoraError, when there will be none."""
        while not self.is_online:
            await self._open().until_online()

    async def start(self, code: str) -> None:
        """Runs code, one at a time; its messages come until `finish`. Throws: NumoraError, as when the server was
        started again since the last one, whose variables it may need.
        """
        session = self._open()
        server, self._server = self._server, session.server
        if server != self._server:
            raise Disconnected(STARTED_AGAIN)
        self._inbox.request = str(uuid.uuid4())
        options = {"request": self._inbox.request, "prompt": 0}
        await session.request("/eval/request", data=code, ext={"connector": options})

    def finish(self) -> None:
        """What comes of that code from now on is not wanted."""
        self._inbox.request = None

    @property
    def request(self) -> Optional[str]:
        """The name of the code that runs, or waits to."""
        return self._inbox.request

    async def type(self, prompt: int, text: str) -> None:
        """Types text as it is.  Throws: NumoraError; PromptGone when the prompt is gone."""
        options = {"request": str(uuid.uuid4()), "prompt": prompt}
        await self._open().request("/eval/request", data=text, ext={"connector": options})

    async def interrupt(self) -> None:
        """Stops what runs; what waits for this console will not run."""
        await self._open().request("/service/connector/v1/Interrupt", data={})

    async def take_back(self) -> None:
        """What waits for this console will not run."""
        await self._open().request("/service/connector/v1/Interrupt", data={"waitingOnly": True})

    def _open(self) -> Session:
        if self._session is None:
            raise Disconnected("the server cannot be reached")
        return self._session
