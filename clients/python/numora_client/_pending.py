"""Replies and answers that are still to come."""

from __future__ import annotations

import asyncio
import contextlib
from typing import Any, Iterator

from .errors import Disconnected


class Pending:
    """Futures, by the id of the message that each answers. No exception of one is left unretrieved."""

    def __init__(self) -> None:
        self._futures: dict[str, asyncio.Future[dict[str, Any]]] = {}

    @contextlib.contextmanager
    def expect(self, identity: str) -> Iterator[asyncio.Future[dict[str, Any]]]:
        """A future that lives until the end of the block."""
        future: asyncio.Future[dict[str, Any]] = asyncio.get_running_loop().create_future()
        self._futures[identity] = future
        try:
            yield future
        finally:
            del self._futures[identity]
            if not future.cancel() and not future.cancelled():
                future.exception()  # retrieved, even if the block has failed otherwise

    def settle(self, identity: Any, message: dict[str, Any]) -> bool:
        """Whether somebody waited for it."""
        future = self._futures.get(identity)
        if future is None:
            return False
        if not future.done():
            future.set_result(message)
        return True

    def fail(self, reason: str) -> None:
        for future in self._futures.values():
            if not future.done():
                future.set_exception(Disconnected(reason))
