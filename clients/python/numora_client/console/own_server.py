"""The server that the program has started for this console alone."""

from __future__ import annotations

import asyncio
import collections
import contextlib
import os
import re
import signal
from typing import Any, Callable, Optional

_ENDING_TIME = 5.0  # seconds for exit hooks and the like, until it is killed
_LINES_KEPT = 20  # of its log, to say why it has ended
_LISTENS = re.compile(r"Listening on (\S+)")


class OwnServer:
    """A child of this process, which also ends by itself when this process does. What it prints comes by a pipe."""

    def __init__(self, pid: int, descriptor: int, say: Optional[Callable[[str], None]]) -> None:
        """`say` is called with each line of its log, if anybody wants that."""
        self._pid, self._descriptor, self._say = pid, descriptor, say
        self.last_lines: collections.deque[str] = collections.deque(maxlen=_LINES_KEPT)
        self._rest = b""
        loop = asyncio.get_running_loop()
        self._address: asyncio.Future[str] = loop.create_future()
        self._is_closed = asyncio.Event()
        loop.add_reader(descriptor, self._take)

    async def address(self) -> str:
        """Where it listens, with its token; empty when it has ended before."""
        ended = asyncio.ensure_future(self._is_closed.wait())
        either: list[asyncio.Future[Any]] = [self._address, ended]
        await asyncio.wait(either, return_when=asyncio.FIRST_COMPLETED)
        ended.cancel()
        return self._address.result() if self._address.done() else ""

    async def ended(self) -> int:
        """Waits for its end; its exit status."""
        await self._is_closed.wait()
        return await asyncio.get_running_loop().run_in_executor(None, self._reap)

    async def end(self) -> None:
        """Ends it, with what it runs."""
        self._signal(signal.SIGTERM)
        waiting = asyncio.ensure_future(self.ended())
        await asyncio.wait([waiting], timeout=_ENDING_TIME)
        if not waiting.done():
            self._signal(signal.SIGKILL)

    def _signal(self, number: int) -> None:
        with contextlib.suppress(ProcessLookupError):
            os.kill(self._pid, number)

    def _reap(self) -> int:
        try:
            return os.waitstatus_to_exitcode(os.waitpid(self._pid, 0)[1])
        except ChildProcessError:
            return 1

    def _take(self) -> None:
        data = os.read(self._descriptor, 65536)
        if not data:
            asyncio.get_running_loop().remove_reader(self._descriptor)
            self._is_closed.set()
            return
        *lines, self._rest = (self._rest + data).split(b"\n")
        for line in lines:
            text = line.decode("utf-8", "replace")
            listens: Optional[re.Match[str]] = _LISTENS.match(text)
            if listens and not self._address.done():
                self._address.set_result(listens[1])
            elif self._say:
                self._say(text)
            else:
                self.last_lines.append(text)
