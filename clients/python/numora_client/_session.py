"""One session with the server, which outlives its connections."""

from __future__ import annotations

import asyncio
import contextlib
import itertools
import random
import time
from typing import Any, Optional, Sequence

from ._inbox import Inbox
from ._pending import Pending
from ._socket import Socket, open_socket
from .address import Address
from .errors import CallError, Disconnected, NumoraError, refusal
from .events import message_from

_REPLY_TIME = 30.0  # seconds until a message that the server replies to at once, or a connect after 25, counts as lost
_ONLINE_TIME = 10.0  # seconds that a request waits for a connection
_FIRST_DELAY, _LONGEST_DELAY = 0.05, 0.5  # seconds between attempts to connect
_REFUSED_TIME = 5.0  # seconds in which a first handshake is tried again, if the server says "later"
_SESSION_TIME = 25.0  # seconds without a connection after which the server has ended the session for sure
_SIP_TIME = 1.0  # seconds between batches for a slow reader: a client that takes nothing for longer may lose text
_SIGN_TIME = 5.0  # seconds between signs of life while nothing is taken
_ENDING_TIME = 0.5  # seconds from the end of code to its completion, on a machine that is busy
_NOWHERE = "/service/alive"  # subscribing to it has no effect
_NO_PROMPT = (1 << 53) - 1  # the number of a prompt that never comes
_LOST, _CLOSED = "the connection was lost", "the client was closed"


class _SessionEnded(Exception):
    """The server does not know the session any more."""


class _Later(Disconnected):
    """The server does not accept the client now."""


class Session:
    """Speaks Bayeux over one WebSocket with the acknowledge extension: messages come with the answers to connects.

    A connection that is cut is opened again, and what was not acknowledged comes again. When the session has ended
    meanwhile, another begins; calls under way fail, and the subscription goes on after the last message that came.
    While the inbox is full there is no connect, so that the server sends nothing and lets the printing code wait.

    Threads: those of one event loop.
    """

    def __init__(self, address: Address, client_type: str) -> None:
        self._address = address
        self._client_type = client_type
        self._ids = itertools.count(1)
        self._replies = Pending()
        self._answers = Pending()
        self._socket: Optional[Socket] = None
        self._client_id: Optional[str] = None
        self._server: Optional[str] = None
        self._acknowledged = 0
        self._patterns: list[str] = []
        self._inbox: Optional[Inbox] = None
        self._number = 0  # of the last message that the server numbered
        self._last_number = 0  # that a message of code that has ended can have; 0 when it may still run
        self._delay = _FIRST_DELAY
        self._last_online = time.monotonic()
        self._is_opened = False
        self._online = asyncio.Event()  # or ended
        self._error: Optional[NumoraError] = None  # why it has ended
        self._task: Optional[asyncio.Task[None]] = None

    async def open(self) -> None:
        """Throws: Disconnected when there is no server, CallError when it refuses the client."""
        self._task = asyncio.create_task(self._run())
        try:
            await self._online.wait()
            if self._error:
                raise self._error
        except BaseException:
            await self.close()
            raise

    async def close(self) -> None:
        if self._task is None:
            return
        task, self._task = self._task, None
        if self._client_id is not None and self._online.is_set():
            with contextlib.suppress(NumoraError, asyncio.TimeoutError):
                await asyncio.wait_for(self._reply("/meta/disconnect"), 2)
        # Until Python 3.12 wait_for loses a cancellation that comes with the end of what it waits for.
        while not task.done():
            task.cancel()
            await asyncio.wait([task], timeout=1)
        self._end(Disconnected(_CLOSED))

    @property
    def is_online(self) -> bool:
        return self._online.is_set() and not self._error

    @property
    def is_ended(self) -> bool:
        return self._error is not None

    async def request(self, channel: str, identity: Optional[str] = None, **members: Any) -> dict[str, Any]:
        """Sends one message and returns its reply. While there is no connection, waits for one."""
        await self.until_online()
        reply = await self._reply(channel, identity, **members)
        if reply.get("successful"):
            return reply
        error = refusal(reply)
        raise Disconnected("the server has ended the session, and the request has not run") if error.code == 402 else error

    async def call(self, kind: str, body: dict[str, Any]) -> dict[str, Any]:
        """The answer to a request of a kind, as connector/v1/Eval."""
        await self.until_online()  # before an answer is expected, which the end of the last session would fail
        identity = str(next(self._ids))
        with self._answers.expect(identity) as future:
            await self.request("/service/" + kind, identity, data=body)
            answer = await future
        if not answer.get("successful", True):
            raise refusal(answer)
        return answer

    async def subscribe(self, patterns: Sequence[str], inbox: Inbox) -> None:
        """What comes on the channels goes to `inbox` until unsubscribe. One at a time."""
        await self.until_online()  # before it can look like one that the last session had
        self._patterns, self._inbox, self._number, self._last_number = list(patterns), inbox, 0, 0
        self._begin(await self.request("/meta/subscribe", subscription=self._patterns))

    async def publish(self, code: str, options: dict[str, Any], inbox: Inbox) -> Optional[Exception]:
        """Runs code whose events go to `inbox`. Gives the error if it was refused, and the inbox has it, too."""
        try:
            await self.until_online()
            if self._inbox is not inbox:
                raise Disconnected("the subscription has ended, and the code has not run")
            await self.request("/eval/request", data=code, ext={"connector": options})
        except Exception as error:
            inbox.fail(error)
            return error
        return None

    async def unsubscribe(self) -> None:
        """Throws: Disconnected when there is no connection; it does not wait for one."""
        patterns, inbox, self._patterns, self._inbox = self._patterns, self._inbox, [], None
        if inbox:
            inbox.room.set()  # nobody will take what it holds
        if patterns:
            await self._reply("/meta/unsubscribe", subscription=patterns)

    @property
    def server(self) -> Optional[str]:
        """A name that changes when the server is started again."""
        return self._server

    async def until_online(self) -> None:
        """Waits for a connection, for its time.  Throws: NumoraError, when there will be none."""
        if not self._online.is_set():
            with contextlib.suppress(asyncio.TimeoutError):
                await asyncio.wait_for(self._online.wait(), _ONLINE_TIME)
        if self._error:
            raise self._error

    # --- the protocol ------------------------------------------------------------------------------------------------

    async def _run(self) -> None:
        """Keeps a connection open until the client is closed or refused."""
        begin = time.monotonic()
        while True:
            try:
                await self._use(await open_socket(self._address))
            except CallError as error:
                return self._end(error)
            except Disconnected as error:
                is_later = isinstance(error, _Later) and time.monotonic() < begin + _REFUSED_TIME
                if not self._is_opened and not is_later:
                    return self._end(error)
            except Exception as error:
                return self._end(Disconnected(f"the server sent what the client does not know: {error!r}"))
            if time.monotonic() > self._last_online + _SESSION_TIME:
                self._answers.fail("the server cannot be reached")
            await asyncio.sleep(self._delay * random.uniform(0.5, 1))  # many clients must not come back at once
            self._delay = min(2 * self._delay, _LONGEST_DELAY)

    async def _use(self, socket: Socket) -> None:
        """Uses a connection until it is lost. The end of either task ends the other: no reply will come any more."""
        self._socket = socket
        tasks = [asyncio.create_task(self._stay_connected()), asyncio.create_task(self._receive(socket))]
        try:
            await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
        finally:
            self._socket = None
            if self._online.is_set() and not self._error:
                self._online.clear()
                self._last_online = time.monotonic()
            for task in tasks:
                task.cancel()
            reasons = await asyncio.gather(*tasks, return_exceptions=True)
            failed = [r for r in reasons if isinstance(r, Exception)]
            self._replies.fail(str(failed[-1]) if failed else _LOST)
            await socket.close()
        raise failed[0] if failed else Disconnected(_LOST)

    async def _stay_connected(self) -> None:
        while True:
            try:
                if self._client_id is None:
                    await self._handshake()
                else:
                    await self._give_sign()
                self._delay, self._is_opened = _FIRST_DELAY, True
                self._online.set()
                while True:
                    await self._wait_for_room()
                    self._check(await self._reply("/meta/connect", connectionType="websocket",
                                                  ext={"ack": self._acknowledged}))
            except _SessionEnded:
                self._client_id = None
                self._answers.fail("the server has ended the session; whether the request has run is not known")

    @staticmethod
    def _check(reply: dict[str, Any]) -> None:
        """What an unsuccessful reply to the session's own messages means. A server that stops says "retry"."""
        if reply.get("successful"):
            return
        reconnect = (reply.get("advice") or {}).get("reconnect")
        error = refusal(reply)
        if reconnect == "handshake" or error.code == 402:
            raise _SessionEnded()
        raise error if reconnect == "none" else _Later(str(error))

    async def _handshake(self) -> None:
        ext = {"ack": True, "connector": {"token": self._address.token, "clientType": self._client_type}}
        reply = await self._reply("/meta/handshake", version="1.0", supportedConnectionTypes=["websocket"], ext=ext)
        self._check(reply)
        self._client_id, self._acknowledged = reply["clientId"], 0
        server = _own(reply).get("server")
        is_restarted = self._server not in (None, server)
        self._server = server
        if is_restarted and self._inbox and self._inbox.request:
            self._inbox.fail(Disconnected("the server was started again, and the code has ended with it"))
            self._patterns, self._inbox = [], None
        if self._inbox:
            ext = {"connector": {"after": self._number}} if self._number else {}
            reply = await self._reply("/meta/subscribe", subscription=self._patterns, ext=ext)
            self._check(reply)
            if is_restarted:
                self._number = 0
            self._begin(reply)
            await self._find_last_number()

    async def _find_last_number(self) -> None:
        """If the code has ended while there was no session, its completion is played again, or is not kept any more."""
        if self._inbox is None or self._inbox.request is None:
            return
        connector = {"request": self._inbox.request, "prompt": _NO_PROMPT}  # refused, for one reason or the other
        reply = await self._reply("/eval/request", data="", ext={"connector": connector})
        if reply.get("error", "").endswith(":the prompt is gone"):  # and the name is free
            await asyncio.sleep(_ENDING_TIME)  # the name is free just before the completion has its number
            self._last_number = _own(await self._give_sign()).get("seq", 0)

    def _begin(self, reply: dict[str, Any]) -> None:
        """Where a subscription begins, for the case that the session ends before any message has come."""
        if self._number == 0:
            self._number = _own(reply).get("seq", 0)

    async def _wait_for_room(self) -> None:
        """Until the reader has taken enough. Meanwhile little is taken, then nothing, but there is a sign of life."""
        inbox = self._inbox
        while inbox and inbox is self._inbox and not inbox.room.is_set():
            try:
                await asyncio.wait_for(inbox.room.wait(), _SIGN_TIME if inbox.is_full else _SIP_TIME)
            except asyncio.TimeoutError:
                if not inbox.is_full:
                    return
                await self._give_sign()

    async def _give_sign(self) -> dict[str, Any]:
        reply = await self._reply("/meta/subscribe", subscription=_NOWHERE)
        self._check(reply)
        return reply

    async def _reply(self, channel: str, identity: Optional[str] = None, **members: Any) -> dict[str, Any]:
        """Sends one message and returns the reply, whatever it says."""
        socket = self._socket
        if socket is None:
            raise Disconnected("the server cannot be reached")
        identity = identity or str(next(self._ids))
        message = {"channel": channel, "id": identity, **members}
        if self._client_id:
            message["clientId"] = self._client_id

        with self._replies.expect(identity) as future:
            try:
                return await asyncio.wait_for(_exchange(socket, message, future), _REPLY_TIME)
            except asyncio.TimeoutError:
                raise Disconnected("the server does not answer") from None

    async def _receive(self, socket: Socket) -> None:
        async for messages, size in socket.frames():
            for message in messages:
                self._take(message, size // len(messages))
            is_drained = len(messages) == 1 and messages[0]["channel"] == "/meta/connect"
            if self._last_number and self._inbox and (is_drained or self._number > self._last_number):
                self._inbox.fail(Disconnected("the code has ended while there was no session, and how is not known"))
                self._last_number = 0

    def _take(self, message: dict[str, Any], size: int) -> None:
        ext, identity = message.get("ext") or {}, message.get("id")
        if message["channel"] == "/meta/connect" and "ack" in ext:
            self._acknowledged = ext["ack"]
        if "data" not in message:
            self._replies.settle(identity, message)
        elif not self._answers.settle(identity, message) and self._inbox and "id" not in message:
            number = _own(message).get("seq", 0)
            if number:
                if number <= self._number:
                    return  # played again
                self._number = number
            self._inbox.put(message_from(message), size)

    def _end(self, error: NumoraError) -> None:
        """For good."""
        if self._error is None:
            self._error = error
        self._replies.fail(str(error))
        self._answers.fail(str(error))
        if self._inbox:
            self._inbox.fail(self._error)
        self._online.set()


async def _exchange(socket: Socket, message: dict[str, Any],
                    future: asyncio.Future[dict[str, Any]]) -> dict[str, Any]:
    await socket.send(message)
    return await future


def _own(message: dict[str, Any]) -> dict[str, Any]:
    return (message.get("ext") or {}).get("connector") or {}
