"""The client for plain scripts: the same without asyncio, from any thread."""

from __future__ import annotations

import asyncio
import collections
import concurrent.futures
import contextlib
import ssl as _ssl
import threading
import weakref
from typing import Any, Callable, Coroutine, Generic, Iterable, Mapping, Optional, TypeVar, Union

from .client import Client, EvalResult
from .errors import Disconnected, NumoraError
from .events import Message, Prompt, StreamEvent
from .interpreters import DeathRecord, Interpreter
from .streams import Reader, Stream

T = TypeVar("T")
R = TypeVar("R", bound="_SyncReader[Any]")
_AT_ONCE = 100  # items that are taken from the loop at a time
_INTERRUPT_TIME = 5.0  # seconds for an interrupt after Ctrl-C


class _Loop:
    """An event loop on a thread of its own."""

    def __init__(self) -> None:
        self._loop = asyncio.new_event_loop()
        self._lock = threading.Lock()  # for has_ended, and what is given to the loop before it
        self._has_ended = False
        self._thread = threading.Thread(target=self._loop.run_forever, name="numora-client", daemon=True)
        self._thread.start()

    def run(self, function: Callable[..., Coroutine[Any, Any, T]], *arguments: Any,
            timeout: Optional[float] = None) -> T:
        """Calls it on the loop and waits; cancels it when the waiting ends with an exception, as by Ctrl-C."""
        future: concurrent.futures.Future[T] = concurrent.futures.Future()
        try:
            with self._lock:
                if self._has_ended:
                    raise Disconnected("the client was closed")
                self._loop.call_soon_threadsafe(self._start, future, function, arguments)
            return future.result(timeout)
        finally:
            future.cancel()

    def _start(self, future: concurrent.futures.Future[T], function: Callable[..., Coroutine[Any, Any, T]],
               arguments: tuple[Any, ...]) -> None:
        def finish(task: asyncio.Task[T]) -> None:
            error = Disconnected("the client was closed") if task.cancelled() else task.exception()
            with contextlib.suppress(concurrent.futures.InvalidStateError):  # nobody waits any more
                future.set_exception(error) if error else future.set_result(task.result())

        task = self._loop.create_task(function(*arguments))
        task.add_done_callback(finish)
        future.add_done_callback(lambda _: None if task.done() else self._loop.call_soon_threadsafe(task.cancel))

    def end(self, client: Client) -> None:
        with self._lock:
            self._has_ended = True
        self._ending = asyncio.run_coroutine_threadsafe(self._shut_down(client), self._loop)
        if threading.current_thread() is not self._thread:  # as for a client that was collected here
            self._thread.join()
            self._loop.close()

    async def _shut_down(self, client: Client) -> None:
        """Ends whatever somebody waits for, and the loop."""
        await client.close()
        others = asyncio.all_tasks() - {asyncio.current_task()}
        for task in others:
            task.cancel()
        await asyncio.gather(*others, return_exceptions=True)
        self._loop.stop()


class _SyncReader(Generic[T]):
    """An iterator; one thread at a time. Leave it, or use `with`, to read no more."""

    def __init__(self, client: SyncClient, reader: Reader[T]) -> None:
        self._client = client  # which is closed when nobody has it any more
        self._loop = loop = client._loop
        self._reader = reader
        self._items: collections.deque[T] = collections.deque()
        loop.run(reader.__aenter__)

    def __iter__(self: R) -> R:
        return self

    def __next__(self) -> T:
        if not self._items:
            self._loop.run(self._take)
        if not self._items:
            raise StopIteration
        return self._items.popleft()

    async def _take(self) -> None:
        # Here and not where they are waited for, so that none is lost when the waiting is interrupted.
        with contextlib.suppress(StopAsyncIteration):
            self._items.extend(await self._reader.some(_AT_ONCE))

    def close(self) -> None:
        """Reads no more. Code that runs goes on."""
        self._loop.run(self._reader.aclose)

    def __enter__(self: R) -> R:
        return self

    def __exit__(self, kind: Optional[type[BaseException]], error: object, trace: object) -> None:
        self.close()


class SyncMessages(_SyncReader[Message]):
    """What is published on channels."""


class SyncStream(_SyncReader[StreamEvent]):
    """The events of running code; the last one is Completed.

    Ctrl-C while it waits, or in a `with` block, interrupts the code; the loop may be entered again to read the rest.
    """

    def __init__(self, client: SyncClient, stream: Stream) -> None:
        self._stream = stream
        self.request = stream.request
        try:
            super().__init__(client, stream)
        except KeyboardInterrupt:
            self._stop()
            raise

    def __next__(self) -> StreamEvent:
        try:
            return super().__next__()
        except KeyboardInterrupt:
            self._stop()
            raise

    def __exit__(self, kind: Optional[type[BaseException]], error: object, trace: object) -> None:
        if kind is not None and issubclass(kind, KeyboardInterrupt):
            self._stop()
        self.close()

    def interrupt(self) -> None:
        """Stops what runs; if the code of this stream has not begun, it will not. Nothing when it has ended."""
        self._loop.run(self._stream.interrupt)

    def _stop(self) -> None:
        with contextlib.suppress(NumoraError, concurrent.futures.TimeoutError):
            self._loop.run(self._stream.interrupt, timeout=_INTERRUPT_TIME)


class SyncClient:
    """What Client is, for scripts. Every operation from any thread."""

    def __init__(self, client: Client) -> None:
        self._client = client
        self._loop = _Loop()
        self._end = weakref.finalize(self, self._loop.end, client)  # at the latest when the script ends
        self._streams: weakref.WeakSet[SyncStream] = weakref.WeakSet()
        try:
            self._loop.run(client.__aenter__)
        except BaseException:
            self._end()
            raise

    def __enter__(self) -> SyncClient:
        return self

    def __exit__(self, kind: Optional[type[BaseException]], *_: object) -> None:
        if kind is not None and issubclass(kind, KeyboardInterrupt):
            for stream in list(self._streams):
                stream._stop()
        self.close()

    def close(self) -> None:
        """Ends the sessions. Code that runs goes on."""
        self._end()

    def eval(self, code: str, timeout: float = 0) -> EvalResult:
        """See Client.eval. Ctrl-C interrupts the code."""
        return self._run(lambda: self._client.eval(code, timeout))

    def call(self, function: str, *arguments: Any, nargout: int = 1, timeout: float = 0, deque_mode: str = "") -> Any:
        """See Client.call. Ctrl-C interrupts what runs."""
        return self._run(lambda: self._client.call(function, *arguments, nargout=nargout, timeout=timeout,
                                                   deque_mode=deque_mode))

    def interrupt(self) -> None:
        """See Client.interrupt."""
        self._loop.run(self._client.interrupt)

    def stream(self, code: str, *, events: Iterable[str] = (), lossy: bool = False,
               capabilities: Iterable[str] = ()) -> SyncStream:
        """See Client.stream; it begins at once."""
        stream = SyncStream(self, self._client.stream(code, events=events, lossy=lossy, capabilities=capabilities))
        self._streams.add(stream)
        return stream

    def type(self, prompt: Union[Prompt, int], text: str) -> None:
        """See Client.type."""
        self._loop.run(self._client.type, prompt, text)

    def messages(self, pattern: str) -> SyncMessages:
        """See Client.messages; it is subscribed at once."""
        return SyncMessages(self, self._client.messages(pattern))

    def interpreter(self, identity: str) -> SyncClient:
        """A client for another interpreter of the server, with the same token; close it, or use `with`."""
        return SyncClient(self._client.interpreter(identity))

    def restart(self, force: bool = False, life: Optional[int] = None) -> Interpreter:
        """See Client.restart."""
        return self._loop.run(self._client.restart, force, life)

    def state(self) -> Interpreter:
        """See Client.state."""
        return self._loop.run(self._client.state)

    def deaths(self) -> list[DeathRecord]:
        """See Client.deaths."""
        return self._loop.run(self._client.deaths)

    def interpreters(self) -> list[Interpreter]:
        """See Client.interpreters."""
        return self._loop.run(self._client.interpreters)

    def create_interpreter(self, identity: Optional[str] = None, *, folder: Optional[str] = None,
                           venv: Optional[str] = None, env: Optional[Mapping[str, str]] = None,
                           memory_mib: Optional[int] = None, cpus: Optional[float] = None,
                           idle_minutes: Optional[float] = None, if_watched: Optional[bool] = None,
                           restart: Optional[str] = None) -> Interpreter:
        """See Client.create_interpreter."""
        return self._loop.run(lambda: self._client.create_interpreter(
            identity, folder=folder, venv=venv, env=env, memory_mib=memory_mib, cpus=cpus, idle_minutes=idle_minutes,
            if_watched=if_watched, restart=restart))

    def delete_interpreter(self, identity: str) -> None:
        """See Client.delete_interpreter."""
        self._loop.run(self._client.delete_interpreter, identity)

    def _run(self, work: Callable[[], Coroutine[Any, Any, T]]) -> T:
        try:
            return self._loop.run(work)
        except KeyboardInterrupt:
            with contextlib.suppress(NumoraError, concurrent.futures.TimeoutError):
                self._loop.run(self._client.interrupt, timeout=_INTERRUPT_TIME)
            raise


def connect(url: str, token: Optional[str] = None, *, client_type: str = "python",
            ssl: Optional[_ssl.SSLContext] = None) -> SyncClient:
    """A client for scripts; close it, or use `with`. See Client."""
    return SyncClient(Client(url, token, client_type=client_type, ssl=ssl))
