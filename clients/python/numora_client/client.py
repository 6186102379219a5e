"""The client for asyncio."""

from __future__ import annotations

import asyncio
import copy
import contextlib
import dataclasses
import json
import math
import ssl as _ssl
import uuid
from typing import Any, Iterable, Mapping, Optional, Union

from . import address
from ._http import exchange
from ._session import Session
from .errors import CallError, Disconnected, NotRun, NumoraError
from .events import Prompt
from .interpreters import DeathRecord, Interpreter, interpreter_from, record_from
from .streams import Messages, Stream

_IDLE_SESSIONS = 4  # kept for the next streams
_NOT_RUN = "the code was not run, because an interrupt came while it waited"
_CANCELLED = "Request was cancelled before starting."  # what the server says of code that had got further


@dataclasses.dataclass(frozen=True)
class EvalResult:
    """What an evaluation printed, and where it left the interpreter; `faults` are pairs of a code and a text."""

    text: str
    is_error: bool
    prompt_type: int
    clear_window: bool
    faults: list[tuple[str, str]]


class Client:
    """Runs code and calls functions. Everything belongs to the event loop in which the client was entered."""

    def __init__(self, url: str, token: Optional[str] = None, *, client_type: str = "python",
                 ssl: Optional[_ssl.SSLContext] = None) -> None:
        """`url` is the line that the server prints, with its token; behind a proxy, with the path that leads to it.

        With `/interpreters/ID` at its end it names another interpreter than the default one.

        https needs a certificate that is trusted, by `ssl` if that is given.  Throws: AddressError.
        """
        self._client_type = client_type
        self._begin(address.parse(url, token, ssl))

    def _begin(self, of: address.Address) -> None:
        self._address = of
        self._main: Optional[Session] = None
        self._idle: list[Session] = []
        self._busy: set[Session] = set()
        self._tasks: set[asyncio.Task[None]] = set()
        self._loop: Optional[asyncio.AbstractEventLoop] = None

    async def __aenter__(self) -> Client:
        """Throws: Disconnected when there is no server, CallError when it refuses the client."""
        self._loop = asyncio.get_running_loop()
        self._main = await self._open()
        return self

    async def __aexit__(self, *_: object) -> None:
        await self.close()

    async def close(self) -> None:
        """Ends the sessions. Code that runs goes on."""
        sessions = [*self._busy, *self._idle, *([self._main] if self._main else [])]
        self._main, self._idle = None, []
        self._busy.clear()
        await asyncio.gather(*(session.close() for session in sessions), *self._tasks)

    async def eval(self, code: str, timeout: float = 0) -> EvalResult:
        """Runs code and returns what it printed. Code that runs longer than `timeout` is stopped; 0 for no limit.

        Throws: NotRun when an interrupt came while it waited.
        """
        answer = await self._call("connector/v1/Eval", {"mcode": code, "timeout": math.ceil(timeout)})
        faults = [(fault["faultCode"], fault["message"]) for fault in answer.get("messageFaults", [])]
        if any(message == _CANCELLED for _, message in faults):
            raise NotRun(_NOT_RUN)
        return EvalResult(answer["responseStr"], answer["isError"], answer["promptType"],
                          answer["clearCommandWindow"], faults)

    async def call(self, function: str, *arguments: Any, nargout: int = 1, timeout: float = 0,
                   deque_mode: str = "") -> Any:
        """Calls a function; returns its result, a list of them for an nargout above 1, None for 0.

        With the deque mode "ppe" the function runs at once, inside running code.
        """
        body = {"function": function, "nargout": nargout, "arguments": list(arguments),
                "timeoutMs": math.ceil(timeout * 1000), "dequeMode": deque_mode}
        answer = await self._call("connector/v1/FEval", body)
        faults = answer.get("messageFaults", [])
        if answer["isError"] or faults:
            conditions = [condition for fault in faults for condition in fault.get("faultConditions", [])]
            raise CallError("; ".join(fault["message"] for fault in faults) or "the call failed",
                            conditions[0]["faultId"] if conditions else "")
        results = json.loads(answer.get("results", "[]"))
        return results if nargout > 1 else results[0] if results else None

    async def interrupt(self) -> None:
        """Stops what runs, and releases the evaluations that wait; Stream.interrupt does so for a stream that waits."""
        await self._call("connector/v1/Interrupt", {})

    def stream(self, code: str, *, events: Iterable[str] = (), lossy: bool = False,
               capabilities: Iterable[str] = ()) -> Stream:
        """Runs code, and gives its events as they come. Without `async with` it begins with the first of them.

        Of the tagged events those with a tag in `events` come, as "progress"; "*" stands for all. Printing waits for a
        reader that is slow; with `lossy` text is lost instead. `capabilities` say what the reader can show, as "display".
        """
        return Stream(self, code, events, lossy, capabilities)

    async def type(self, prompt: Union[Prompt, int], text: str) -> None:
        """Types a line at a prompt that is open, as code does that asks for input. Its line break is added.

        Throws: PromptGone when the prompt is gone, and ValueError for one at which nothing can be typed.
        """
        number = prompt.number if isinstance(prompt, Prompt) else prompt
        if not number or number < 0:
            raise ValueError("the prompt must be one with a number: nothing can be typed at the others")
        await self._session().request("/eval/request", data=text if text.endswith("\n") else text + "\n",
                                      ext={"connector": {"request": str(uuid.uuid4()), "prompt": number}})

    def messages(self, pattern: str) -> Messages:
        """What is published on the channels that match, as in `client.messages("/eventmgr/0/status")`."""
        return Messages(self, pattern)

    # --- interpreters ------------------------------------------------------------------------------------------------

    def interpreter(self, identity: str) -> Client:
        """Another interpreter of the server, with the same token; to be entered like this one, but for what follows.

        Throws: AddressError for what cannot be the id of one.
        """
        other = copy.copy(self)
        other._begin(self._address.with_interpreter(identity))
        return other

    async def restart(self, force: bool = False, life: Optional[int] = None) -> Interpreter:
        """Ends the life of this interpreter, also in native code that no interrupt reaches, and begins the next one.

        What runs is interrupted before, and exit hooks run, for two seconds at most; with `force` not. With `life` only if
        that is the life it has, else it is a CallError with the code 409. Returns when the new life takes requests.
        """
        body: dict[str, Any] = {"force": force}
        if life is not None:
            body["life"] = life
        return interpreter_from(await exchange(self._address, "POST", self._path() + "/restart", body))

    async def state(self) -> Interpreter:
        """What the server says of this interpreter, whatever that does."""
        return interpreter_from(await exchange(self._address, "GET", self._path()))

    async def deaths(self) -> list[DeathRecord]:
        """How the last lives of this interpreter have ended, the newest first, ten at most."""
        answer = await exchange(self._address, "GET", self._path() + "/deaths")
        return [record_from(raw) for raw in answer["deaths"]]

    async def interpreters(self) -> list[Interpreter]:
        """All interpreters of the server."""
        answer = await exchange(self._address, "GET", "/interpreters")
        return [interpreter_from(raw) for raw in answer["interpreters"]]

    async def create_interpreter(self, identity: Optional[str] = None, *, folder: Optional[str] = None,
                                 venv: Optional[str] = None, env: Optional[Mapping[str, str]] = None,
                                 memory_mib: Optional[int] = None, cpus: Optional[float] = None,
                                 idle_minutes: Optional[float] = None, if_watched: Optional[bool] = None,
                                 restart: Optional[str] = None) -> Interpreter:
        """Makes an interpreter, under an id of the server's choice unless one is given; its process starts on demand.

        `folder` is its working directory, `venv` a virtual environment, `env` what it has in its environment besides. An
        interpreter that was idle for `idle_minutes` is ended; with `if_watched` false not while somebody is subscribed to
        it. `restart` is "demand", "always" or "never". What is not given is as the server has it.

        Throws: CallError, with the code 409 when the id is in use.
        """
        options = {"id": identity, "folder": folder, "venv": venv, "env": env and dict(env), "memoryMiB": memory_mib,
                   "cpus": cpus, "idleMinutes": idle_minutes, "ifWatched": if_watched, "restart": restart}
        given = {name: value for name, value in options.items() if value is not None}
        return interpreter_from(await exchange(self._address, "POST", "/interpreters", given))

    async def delete_interpreter(self, identity: str) -> None:
        """Ends an interpreter and forgets it. The one that is called "default" cannot be deleted."""
        await exchange(self._address, "DELETE", address.path_of(identity))

    @property
    def place(self) -> str:
        """Which interpreter of which server this is a client for; for people, without the token."""
        return f'interpreter "{self._address.interpreter or "default"}" at {self._address.server}/'

    def _path(self) -> str:
        return address.path_of(self._address.interpreter or "default")

    # --- sessions ----------------------------------------------------------------------------------------------------

    def _session(self) -> Session:
        if self._main is None:
            raise Disconnected("the client is not open")
        return self._main

    async def _call(self, kind: str, body: dict[str, Any]) -> dict[str, Any]:
        answer = await self._session().call(kind, body)
        if ((answer.get("ext") or {}).get("connector") or {}).get("dropped"):
            raise NotRun(_NOT_RUN)
        data: dict[str, Any] = answer["data"]
        return data

    async def _open(self) -> Session:
        session = Session(self._address, self._client_type)
        await session.open()
        return session

    async def borrow(self) -> Session:
        """For readers: a session that nobody else uses."""
        self._session()
        while self._idle:
            session = self._idle.pop()
            if not session.is_ended:
                break
        else:
            session = await self._open()
            if self._main is None:  # closed meanwhile
                await session.close()
                self._session()
        self._busy.add(session)
        return session

    def give_back(self, session: Session) -> None:
        """For readers; from any thread, since they may be collected on any."""
        if self._loop is not None and not self._loop.is_closed():
            self._loop.call_soon_threadsafe(self.end_use, session)

    def end_use(self, session: Session) -> asyncio.Task[None]:
        """The same in the event loop; when the task is done, the session is unsubscribed."""
        task = asyncio.ensure_future(self._reuse(session))
        self._tasks.add(task)
        task.add_done_callback(self._tasks.discard)
        return task

    async def _reuse(self, session: Session) -> None:
        is_usable = False
        with contextlib.suppress(NumoraError):
            await session.unsubscribe()
            is_usable = self._main is not None and not session.is_ended and len(self._idle) < _IDLE_SESSIONS
        self._busy.discard(session)
        if is_usable:
            self._idle.append(session)
        else:
            await session.close()
