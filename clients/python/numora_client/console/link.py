"""The way to the interpreter, which may take its time to be there, and is opened again when it is lost."""

from __future__ import annotations

import asyncio
from typing import Any, Awaitable, Callable, Optional

from ..client import Client
from ..errors import CallError, InterpreterDied, NumoraError
from ..events import Message
from ..interpreters import Interpreter
from .conversation import Conversation

_PAUSE = 0.5  # seconds between attempts to begin anew


class Link:
    """`take` is called with each message, one at a time, and `lose` with what has ended the code that runs.

    `failed` is the error after which nothing more will come.
    """

    def __init__(self, take: Callable[[Message], Awaitable[None]], lose: Callable[[NumoraError], None]) -> None:
        self._take, self._lose = take, lose
        self._client: Optional[Client] = None
        self._conversation: Optional[Conversation] = None
        self._is_ready = asyncio.Event()
        self._task: Optional[asyncio.Task[None]] = None
        self.failed: asyncio.Future[Exception] = asyncio.get_running_loop().create_future()

    async def open(self, url: str, token: Optional[str]) -> None:
        """Throws: NumoraError."""
        self._client = client = Client(url, token, client_type="console")
        await client.__aenter__()
        self._conversation = Conversation(client)
        await self._conversation.begin()
        self._is_ready.set()
        self._task = asyncio.create_task(self._read())

    async def close(self) -> None:
        if self._task:
            self._task.cancel()
        if self._client:
            await self._client.close()

    async def conversation(self) -> Conversation:
        """Waits until there is one."""
        await self._is_ready.wait()
        assert self._conversation
        return self._conversation

    @property
    def place(self) -> str:
        return self._client.place if self._client else ""

    @property
    def is_online(self) -> bool:
        return self._is_ready.is_set() and self._conversation is not None and self._conversation.is_online

    async def call(self, function: str, *arguments: Any) -> Any:
        """Calls a function of the interpreter, inside running code.  Throws: NumoraError."""
        return await (await self._open_client()).call(function, *arguments, deque_mode="ppe")

    async def restart(self, force: bool) -> Interpreter:
        """Throws: NumoraError."""
        return await (await self._open_client()).restart(force)

    async def interpreter(self) -> Interpreter:
        """What the server says of the interpreter, whatever that does.  Throws: NumoraError."""
        return await (await self._open_client()).state()

    async def _open_client(self) -> Client:
        await self._is_ready.wait()
        assert self._client
        return self._client

    async def _read(self) -> None:
        assert self._conversation
        while True:
            try:
                for message in await self._conversation.some(100):
                    await self._take(message)
            except NumoraError as error:
                self._is_ready.clear()
                self._lose(error)
                if not await self._begin_anew():
                    return
            except Exception as error:  # as when the terminal is gone
                return self.failed.set_result(error)

    async def _begin_anew(self) -> bool:
        assert self._client
        while True:
            self._conversation = Conversation(self._client)
            try:
                await self._conversation.begin()
            except CallError as error:
                if not isinstance(error, InterpreterDied):
                    self.failed.set_result(error)
                    return False
            except NumoraError:
                pass
            else:
                self._is_ready.set()
                return True
            await asyncio.sleep(_PAUSE)
