"""A client of Numora Connector: runs code and calls functions in a remote interpreter, and streams what it prints.

    import asyncio, numora_client

    async def main():
        async with numora_client.Client("http://127.0.0.1:8350/?token=...") as client:
            print((await client.eval("6 * 7")).text)
            print(await client.call("numpy.linalg.det", [[2, 0], [0, 3]]))
            async for event in client.stream("for i in range(3): print(i)"):
                print(event.kind, event.value)

    asyncio.run(main())

It speaks Bayeux over one WebSocket with the acknowledge extension, so that nothing is lost when the connection is cut: it
is opened again, and what was not acknowledged comes again. After a longer absence, when the server has ended the session,
the client subscribes again and gets what the server still keeps; what it does not keep is told as one "gap" event.
"""

import asyncio
import collections
import contextlib
import dataclasses
import itertools
import json
import random
import re
import ssl as _ssl
import time
import urllib.parse

import websockets

__all__ = ["CallError", "Client", "Disconnected", "Dropped", "EvalResult", "Event", "Message"]

_RESPONSES = "/eval/response/"
_REPLY_TIME = 30.0  # seconds until a message that the server acknowledges at once counts as lost
_FIRST_DELAY, _LONGEST_DELAY = 0.1, 5.0  # seconds between attempts to reconnect
_SESSION_TIME = 25.0  # seconds without a connection after which the server has ended the session for sure
_ROOM = 64 << 20  # characters of text that wait for a slow reader of a stream
_MOST_MESSAGES = 1_000_000  # that wait for a slow reader


class CallError(Exception):
    """A request was refused, or a called function failed. `identifier` says how, for a failure that has one."""

    def __init__(self, message, identifier=""):
        super().__init__(message)
        self.identifier = identifier


class Dropped(CallError):
    """The code was not run, because an interrupt came while it waited."""


class _Later(Exception):
    """The server does not accept the client now."""


class Disconnected(Exception):
    """The server has ended the session, or cannot be reached; whether the request has run is not known."""


@dataclasses.dataclass
class EvalResult:
    """What an evaluation printed, and where it left the interpreter; `faults` are pairs of a code and a text."""

    text: str
    is_error: bool
    prompt_type: int
    clear_window: bool
    faults: list


@dataclasses.dataclass
class Message:
    """What was published on a channel."""

    channel: str
    data: object


@dataclasses.dataclass
class Event:
    """One event of a stream: kind is "output", "error", "suggest", "prompt", "clear", "home", "gap", "dropped" or
    "completion", whose value is whether the code succeeded."""

    kind: str
    value: object


class _Inbox:
    """The messages for one reader. When the reader is slow, text that finds no room is counted in a notice instead."""

    def __init__(self, pattern):
        self.pattern = pattern
        self.typed = 0  # texts typed, each of which is completed before the code is
        self._messages = collections.deque()
        self._waiting = 0  # characters
        self._arrival = asyncio.Event()

    def put(self, message):
        size = len(message.data) if isinstance(message.data, str) else 0
        if self._waiting + size > _ROOM and message.channel in (_RESPONSES + "output", _RESPONSES + "error"):
            last = self._messages[-1]
            if getattr(last, "channel", "") != "/connector/dropped":
                last = Message("/connector/dropped", {"channel": message.channel, "messages": 0, "bytes": 0})
                self._messages.append(last)
            last.data["messages"] += 1
            last.data["bytes"] += size
            return
        if len(self._messages) >= _MOST_MESSAGES:
            if not isinstance(self._messages[-1], Exception):
                self.fail(Disconnected("the reader is too slow"))
            return
        self._waiting += size
        self._messages.append(message)
        self._arrival.set()

    def fail(self, error):
        self._messages.append(error)
        self._arrival.set()

    async def get(self):
        while not self._messages:
            self._arrival.clear()
            await self._arrival.wait()
        message = self._messages.popleft()
        if isinstance(message, Exception):
            raise message
        self._waiting -= len(message.data) if isinstance(message.data, str) else 0
        return message


class Client:
    """One session. Every operation belongs to the event loop in which the client was entered."""

    def __init__(self, url, token=None, client_type="python"):
        """`url` may be the line that the server prints, with its token. https needs a certificate that is trusted."""
        parts = urllib.parse.urlsplit(url)
        query = urllib.parse.parse_qs(parts.query)
        self._token = token or query.get("token", [""])[0]
        self._client_type = client_type
        secure = parts.scheme in ("https", "wss")
        self._url = "%s://%s/cometd" % ("wss" if secure else "ws", parts.netloc)
        self._ssl = _ssl.create_default_context() if secure else None
        self._ids = itertools.count(1)
        self._socket = None
        self._client_id = None
        self._acknowledged = 0
        self._sequence = 0  # of the last message that the server numbered
        self._is_first_of_session = True  # no numbered message has come yet
        self._replies = {}  # id -> future of the reply
        self._answers = {}  # id -> future of a call's answer
        self._inboxes = []
        self._task = None
        self._ready = None

    async def __aenter__(self):
        """Raises OSError or Disconnected when there is no server, CallError when it refuses the client."""
        self._ready = asyncio.get_running_loop().create_future()
        self._task = asyncio.create_task(self._run())
        try:
            await asyncio.shield(self._ready)
        except BaseException:
            await self.close()
            raise
        return self

    async def __aexit__(self, *_):
        await self.close()

    async def close(self):
        """Ends the session."""
        if self._task is None:
            return
        task, self._task = self._task, None
        if self._socket is not None and self._client_id is not None:
            with contextlib.suppress(Exception):
                await asyncio.wait_for(self._request("/meta/disconnect"), 2)
        task.cancel()
        with contextlib.suppress(asyncio.CancelledError, Exception):
            await task
        self._fail_all(Disconnected("the client was closed"))

    # --- the verbs ---------------------------------------------------------------------------------------------------

    async def eval(self, code, timeout=0):
        """Runs code and returns what it printed; `timeout` is in whole seconds, 0 for none.

        Raises Dropped when the code was not run because of an interrupt that came while it waited.
        """
        answer = await self._call("connector/v1/Eval", {"mcode": code, "timeout": timeout})
        faults = [(f["faultCode"], f["message"]) for f in answer.get("messageFaults", [])]
        return EvalResult(answer["responseStr"], answer["isError"], answer["promptType"],
                          answer["clearCommandWindow"], faults)

    async def call(self, function, *arguments, nargout=1, timeout=0, deque_mode=""):
        """Calls a function; returns its result, a list of them for an nargout above 1, None for 0.

        `timeout` is in seconds; with the deque mode "ppe" the function runs at once, inside running code.
        """
        body = {"function": function, "nargout": nargout, "arguments": list(arguments),
                "timeoutMs": round(timeout * 1000), "dequeMode": deque_mode}
        answer = await self._call("connector/v1/FEval", body)
        faults = answer.get("messageFaults", [])
        if answer["isError"] or faults:
            conditions = [c for f in faults for c in f.get("faultConditions", [])]
            raise CallError("; ".join(f["message"] for f in faults) or "the call failed",
                            conditions[0]["faultId"] if conditions else "")
        results = json.loads(answer.get("results", "[]"))
        return results if nargout > 1 else results[0] if results else None

    async def interrupt(self):
        """Stops what runs, and releases the requests that wait."""
        await self._call("connector/v1/Interrupt", {})

    async def stream(self, code):
        """Runs code and yields its events as they come; the last one is the completion.

        The server's streams belong to all clients: while several run at a time, each sees the events of all.
        """
        kinds = {"/connector/dropped": "dropped", "/connector/gap": "gap",
                 _RESPONSES + "iqminput": "prompt", _RESPONSES + "commandwindow/clear": "clear",
                 _RESPONSES + "commandwindow/home": "home"}
        async with self._subscribed(_RESPONSES + "**") as inbox:
            await self._request("/eval/request", data=code)
            while True:
                message = await inbox.get()
                kind = kinds.get(message.channel) or message.channel[len(_RESPONSES):]
                if kind == "completion" and inbox.typed > 0:
                    inbox.typed -= 1
                    continue
                yield Event(kind, message.data == "Done: success" if kind == "completion" else message.data)
                if kind == "completion":
                    return

    async def type(self, text):
        """Types text, with its line break, for code that asks for input in a stream."""
        streams = [inbox for inbox in self._inboxes if inbox.pattern == _RESPONSES + "**"]
        for inbox in streams:
            inbox.typed += 1
        try:
            await self._request("/eval/request", data=text)
        except BaseException:
            for inbox in streams:
                inbox.typed = max(0, inbox.typed - 1)
            raise

    async def messages(self, pattern):
        """Yields what is published on the channels that match, as in `client.messages("/eventmgr/0/status")`."""
        async with self._subscribed(pattern) as inbox:
            while True:
                yield await inbox.get()

    # --- the protocol ------------------------------------------------------------------------------------------------

    @contextlib.asynccontextmanager
    async def _subscribed(self, pattern):
        inbox = _Inbox(pattern)
        is_first = pattern not in self._patterns()
        self._inboxes.append(inbox)
        try:
            if is_first:
                self._begin(await self._request("/meta/subscribe", subscription=pattern))
            yield inbox
        finally:
            self._inboxes.remove(inbox)
            if pattern not in self._patterns() and self._socket is not None:
                with contextlib.suppress(CallError, Disconnected):
                    await self._request("/meta/unsubscribe", subscription=pattern)

    def _begin(self, reply):
        """Where a subscription begins, for the case that the session ends before any message has come."""
        if self._sequence == 0:
            self._sequence = ((reply.get("ext") or {}).get("connector") or {}).get("seq", 0)

    def _patterns(self):
        return sorted({inbox.pattern for inbox in self._inboxes})

    async def _call(self, kind, body):
        future = asyncio.get_running_loop().create_future()
        identity = str(next(self._ids))
        self._answers[identity] = future
        try:
            await self._request("/service/" + kind, identity, data=body)
            answer = await future
        finally:
            self._answers.pop(identity, None)
        if not answer.get("successful", True):
            raise CallError(_reason(answer))
        if ((answer.get("ext") or {}).get("connector") or {}).get("dropped"):
            raise Dropped("the code was not run, because an interrupt came while it waited")
        return answer["data"]

    async def _request(self, channel, identity=None, **members):
        """Sends one message and returns its reply."""
        if self._socket is None:
            raise Disconnected("the client is not connected")
        identity = identity or str(next(self._ids))
        future = asyncio.get_running_loop().create_future()
        self._replies[identity] = future
        message = {"channel": channel, "id": identity, **members}
        if self._client_id:
            message["clientId"] = self._client_id
        try:
            await self._socket.send(json.dumps([message]))
            reply = await asyncio.wait_for(future, _REPLY_TIME)
        except websockets.ConnectionClosed as error:
            raise Disconnected("the connection was lost") from error
        except asyncio.TimeoutError as error:
            raise Disconnected("the server did not reply in time") from error
        finally:
            self._replies.pop(identity, None)
        if not reply.get("successful"):
            if channel == "/meta/handshake" and (reply.get("advice") or {}).get("reconnect") != "none":
                raise _Later(_reason(reply))
            raise CallError(_reason(reply))
        return reply

    async def _run(self):
        """Keeps a connection open until the client is closed."""
        delay, lost = _FIRST_DELAY, None
        headers = {"Authorization": "Bearer " + self._token} if self._token else {}
        while self._task is not None:
            try:
                async with websockets.connect(self._url, ssl=self._ssl, max_size=None,
                                              extra_headers=headers) as socket:
                    self._socket = socket
                    receiver = asyncio.create_task(self._receive(socket))
                    try:
                        if self._client_id is None:
                            await self._handshake()
                        delay, lost = _FIRST_DELAY, None
                        if not self._ready.done():
                            self._ready.set_result(None)
                        await self._stay_connected(receiver)
                    finally:
                        self._socket = None
                        receiver.cancel()
                        self._fail(self._replies, Disconnected("the connection was lost"))
                        if self._task is None:
                            return
            except (OSError, Disconnected, _Later, websockets.WebSocketException, asyncio.TimeoutError) as error:
                if not self._ready.done():
                    self._ready.set_exception(Disconnected(str(error)) if isinstance(error, _Later) else error)
                    return
                lost = lost or time.monotonic()
                if time.monotonic() - lost > _SESSION_TIME:
                    self._fail(self._answers, Disconnected("the server cannot be reached"))
            except CallError as error:
                self._fail_all(error)
                if not self._ready.done():
                    self._ready.set_exception(error)
                return
            await asyncio.sleep(delay * random.uniform(0.5, 1))  # many clients must not come back at once
            delay = min(2 * delay, _LONGEST_DELAY)

    async def _handshake(self):
        ext = {"ack": True, "connector": {"token": self._token, "clientType": self._client_type}}
        reply = await self._request("/meta/handshake", version="1.0", supportedConnectionTypes=["websocket"], ext=ext)
        self._client_id = reply["clientId"]
        self._acknowledged = 0
        self._is_first_of_session = True
        if self._inboxes:
            ext = {"connector": {"after": self._sequence}} if self._sequence else {}
            self._begin(await self._request("/meta/subscribe", subscription=self._patterns(), ext=ext))

    async def _stay_connected(self, receiver):
        advice = {"advice": {"timeout": 0}}  # the first answer comes at once and says that all is well
        while self._task is not None:
            connect = asyncio.create_task(self._request("/meta/connect", connectionType="websocket",
                                                        ext={"ack": self._acknowledged}, **advice))
            try:
                await asyncio.wait({connect, receiver}, return_when=asyncio.FIRST_COMPLETED)
                if not connect.done():
                    raise Disconnected("the connection was lost")
                connect.result()
                advice = {}
            except CallError:
                # The session has ended: calls under way are lost, streams go on with what the server keeps.
                self._client_id = None
                self._fail(self._answers, Disconnected("the server ended the session"))
                await self._handshake()
            finally:
                if not connect.cancel():
                    connect.exception()  # it is known what has become of the connection

    async def _receive(self, socket):
        async for frame in socket:
            messages = json.loads(frame)
            for message in messages if isinstance(messages, list) else [messages]:
                self._take(message)

    def _take(self, message):
        ext = message.get("ext") or {}
        if message["channel"] == "/meta/connect" and "ack" in ext:
            self._acknowledged = ext["ack"]
        identity = message.get("id")
        if "data" in message and identity in self._answers:
            self._settle(self._answers[identity], message)
        elif "data" in message:
            number = (ext.get("connector") or {}).get("seq", 0)
            if 0 < number <= self._sequence and not self._is_first_of_session:
                return  # played again for another subscription
            if number:
                self._sequence, self._is_first_of_session = number, False
            self._deliver(Message(message["channel"], message["data"]))
        elif identity in self._replies:
            self._settle(self._replies[identity], message)

    def _deliver(self, message):
        for inbox in self._inboxes:
            if message.channel.startswith("/connector/"):
                inbox.put(Message(message.channel, dict(message.data)))  # an inbox may add to it
            elif _matches(inbox.pattern, message.channel):
                inbox.put(message)

    @staticmethod
    def _settle(future, value):
        if not future.done():
            future.set_result(value)

    @staticmethod
    def _fail(futures, error):
        for future in futures.values():
            if not future.done():
                future.set_exception(error)

    def _fail_all(self, error):
        self._fail(self._replies, error)
        self._fail(self._answers, error)
        for inbox in self._inboxes:
            inbox.fail(error)


def _reason(reply):
    """Why a request failed: the detail, which the answer to a call has in its data, or else the error's own text."""
    data = reply.get("data")
    if isinstance(data, dict) and data.get("error"):
        return data["error"]
    code = re.match(r"\d{3}:([^:]*):", reply.get("error") or "")
    if not code:
        return reply.get("error") or "the server refused the request"
    text = reply["error"][code.end():]
    return "%s: %s" % (code[1], text) if code[1] else text


def _matches(pattern, channel):
    if pattern.endswith("/**"):
        return channel.startswith(pattern[:-2]) and len(channel) > len(pattern) - 2
    if pattern.endswith("/*"):
        return channel.startswith(pattern[:-1]) and "/" not in channel[len(pattern) - 1:]
    return channel == pattern
