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
is opened anew, and what was not acknowledged comes again. After a longer absence, when the server has ended the session,
the client subscribes anew and gets what the server still keeps; what it does not keep is told as one "gap" event.
"""

import asyncio
import contextlib
import dataclasses
import itertools
import json
import ssl as _ssl
import urllib.parse

import websockets

__all__ = ["CallError", "Client", "Disconnected", "EvalResult", "Event"]

_RESPONSES = "/eval/response/"
_FIRST_DELAY, _LONGEST_DELAY = 0.1, 5.0  # seconds between attempts to reconnect


class CallError(Exception):
    """A request was refused, or a called function failed."""


class Disconnected(Exception):
    """The server has ended the session, or is gone; whether the request has run is not known."""


@dataclasses.dataclass
class EvalResult:
    text: str
    is_error: bool
    prompt_type: int
    clear_window: bool
    faults: list


@dataclasses.dataclass
class Event:
    """One event of a stream: kind is "output", "error", "suggest", "prompt", "clear", "home", "gap", "dropped" or
    "completion", whose value is whether the code succeeded."""

    kind: str
    value: object


class Client:
    """One session. Every operation belongs to the event loop in which the client was entered."""

    def __init__(self, url, token=None, client_type="python"):
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
        self._replies = {}  # id -> future of the reply
        self._answers = {}  # id -> future of a call's answer
        self._streams = []  # queues of events, one for each stream under way
        self._task = None
        self._ready = None

    async def __aenter__(self):
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
        if self._socket is not None and self._client_id is not None:
            with contextlib.suppress(Exception):
                await asyncio.wait_for(self._request("/meta/disconnect"), 2)
        task, self._task = self._task, None
        task.cancel()
        with contextlib.suppress(asyncio.CancelledError, Exception):
            await task
        self._fail_all(Disconnected("the client was closed"))

    # --- the verbs ---------------------------------------------------------------------------------------------------

    async def eval(self, code, timeout=0):
        """Runs code and returns what it printed; `timeout` is in whole seconds, 0 for none."""
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
            raise CallError("; ".join(f["message"] for f in faults) or "the call failed")
        results = json.loads(answer.get("results", "[]"))
        return results if nargout > 1 else results[0] if results else None

    async def interrupt(self):
        """Stops what runs, and releases the requests that wait."""
        await self._call("connector/v1/Interrupt", {})

    async def stream(self, code):
        """Runs code and yields its events as they come; the last one is the completion.

        The server's streams belong to all clients: while several run at a time, each sees the events of all.
        """
        events = asyncio.Queue()
        self._streams.append(events)
        try:
            if len(self._streams) == 1:
                await self._request("/meta/subscribe", subscription=_RESPONSES + "**")
            await self._request("/eval/request", data=code)
            while True:
                event = await events.get()
                if isinstance(event, Exception):
                    raise event
                yield event
                if event.kind == "completion":
                    return
        finally:
            self._streams.remove(events)
            if not self._streams and self._socket is not None:
                with contextlib.suppress(CallError, Disconnected):
                    await self._request("/meta/unsubscribe", subscription=_RESPONSES + "**")

    # --- the protocol ------------------------------------------------------------------------------------------------

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
            raise CallError(json.dumps(answer["data"]))
        return answer["data"]

    async def _request(self, channel, identity=None, **members):
        """Sends one message and returns its reply."""
        identity = identity or str(next(self._ids))
        future = asyncio.get_running_loop().create_future()
        self._replies[identity] = future
        message = {"channel": channel, "id": identity, **members}
        if self._client_id:
            message["clientId"] = self._client_id
        try:
            if self._socket is None:
                raise Disconnected("there is no connection")
            await self._socket.send(json.dumps([message]))
            reply = await future
        except websockets.ConnectionClosed as error:
            raise Disconnected("the connection was lost") from error
        finally:
            self._replies.pop(identity, None)
        if not reply.get("successful"):
            raise CallError(reply.get("error", "refused"))
        return reply

    async def _run(self):
        """Keeps a connection open until the client is closed."""
        delay = _FIRST_DELAY
        while True:
            try:
                async with websockets.connect(self._url, ssl=self._ssl, max_size=None) as socket:
                    self._socket = socket
                    receiver = asyncio.create_task(self._receive(socket))
                    try:
                        if self._client_id is None:
                            await self._handshake()
                        delay = _FIRST_DELAY
                        if not self._ready.done():
                            self._ready.set_result(None)
                        await self._stay_connected(receiver)
                    finally:
                        self._socket = None
                        receiver.cancel()
                        self._fail(self._replies, Disconnected("the connection was lost"))
            except (OSError, Disconnected, websockets.WebSocketException, asyncio.TimeoutError) as error:
                if not self._ready.done():
                    self._ready.set_exception(error)
                    return
            except CallError as error:
                self._fail_all(error)
                if not self._ready.done():
                    self._ready.set_exception(error)
                return
            await asyncio.sleep(delay)
            delay = min(2 * delay, _LONGEST_DELAY)

    async def _handshake(self):
        ext = {"ack": True, "connector": {"token": self._token, "clientType": self._client_type}}
        reply = await self._request("/meta/handshake", version="1.0", supportedConnectionTypes=["websocket"], ext=ext)
        self._client_id = reply["clientId"]
        self._acknowledged = 0
        if self._streams:
            await self._request("/meta/subscribe", subscription=_RESPONSES + "**",
                                ext={"connector": {"after": self._sequence}})

    async def _stay_connected(self, receiver):
        timeout = 0
        while not receiver.done():
            connect = asyncio.create_task(
                self._request("/meta/connect", connectionType="websocket", ext={"ack": self._acknowledged},
                              **({"advice": {"timeout": 0}} if timeout == 0 else {})))
            await asyncio.wait({connect, receiver}, return_when=asyncio.FIRST_COMPLETED)
            if not connect.done():
                connect.cancel()
                raise Disconnected("the connection was lost")
            try:
                connect.result()
            except CallError:
                # The session has ended: calls under way are lost, streams go on with what the server keeps.
                self._client_id = None
                self._fail(self._answers, Disconnected("the server has ended the session"))
                await self._handshake()
            timeout = None

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
            self._sequence = max(self._sequence, (ext.get("connector") or {}).get("seq", 0))
            self._deliver(message["channel"], message["data"])
        elif identity in self._replies:
            self._settle(self._replies[identity], message)

    def _deliver(self, channel, data):
        kinds = {"/connector/dropped": "dropped", "/connector/gap": "gap",
                 _RESPONSES + "iqminput": "prompt", _RESPONSES + "commandwindow/clear": "clear",
                 _RESPONSES + "commandwindow/home": "home"}
        kind = kinds.get(channel) or channel.removeprefix(_RESPONSES)
        value = data == "Done: success" if kind == "completion" else data
        for events in self._streams:
            events.put_nowait(Event(kind, value))

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
        for events in self._streams:
            events.put_nowait(error)
