"""A WebSocket that carries arrays of messages, with any version of the library from 10 to 15."""

from __future__ import annotations

import asyncio
import contextlib
import inspect
import json
from typing import Any, AsyncIterator

import websockets
from websockets.exceptions import ConnectionClosed, WebSocketException

from ._http import exchange
from .address import Address, path_of
from .errors import Disconnected

_OPENING_TIME = 10.0  # seconds for TCP, TLS and the opening handshake
_CLOSING_TIME = 1.0  # seconds for the closing handshake: a server that has vanished must not delay the next attempt


def connect_options(connect: Any, headers: dict[str, str]) -> dict[str, Any]:
    """The headers under the name that the library has for them: `extra_headers` until version 13."""
    is_new = "additional_headers" in inspect.signature(connect).parameters
    return {"additional_headers" if is_new else "extra_headers": headers}


def status_of(error: Exception) -> int:
    """The HTTP status of a refused opening handshake, 0 for others; the library has two exceptions for it."""
    response = getattr(error, "response", error)
    return int(getattr(response, "status_code", 0))


def _loss(error: ConnectionClosed) -> Disconnected:
    closing = getattr(error, "rcvd", None)
    is_too_large = closing is not None and closing.code == 1009
    return Disconnected("a request must have at most 16 MiB" if is_too_large else "the connection was lost")


class Socket:
    """An open connection. What fails is Disconnected."""

    def __init__(self, connection: Any) -> None:
        self._connection = connection

    async def send(self, message: dict[str, Any]) -> None:
        """Throws: ValueError or TypeError for what has no form in JSON; nothing is sent then."""
        try:
            frame = json.dumps([message], allow_nan=False, ensure_ascii=False)
            frame = frame.encode("utf-16", "surrogatepass").decode("utf-16")
        except UnicodeError:
            raise ValueError("text must not hold surrogates without their other half") from None
        try:
            await self._connection.send(frame)
        except ConnectionClosed as error:
            raise _loss(error) from None

    async def frames(self) -> AsyncIterator[tuple[list[dict[str, Any]], int]]:
        """The messages of each frame, and its length in characters. Ends with Disconnected."""
        try:
            async for frame in self._connection:
                messages = json.loads(frame)
                if not isinstance(messages, list) or not all(isinstance(m, dict) and "channel" in m for m in messages):
                    raise ValueError("not an array of messages")
                yield messages, len(frame)
        except ConnectionClosed as error:
            raise _loss(error) from None
        except ValueError as error:
            raise Disconnected(f"the server sent what is not an array of messages: {error}") from None
        raise Disconnected("the connection was lost")

    async def close(self) -> None:
        with contextlib.suppress(OSError, WebSocketException, asyncio.TimeoutError):
            await asyncio.wait_for(self._connection.close(), 2 * _CLOSING_TIME)


async def open_socket(address: Address) -> Socket:
    """Throws: Disconnected; CallError where the server says that there is no such interpreter."""
    headers = {"Authorization": "Bearer " + address.token} if address.token else {}
    library: Any = websockets
    # What a frame holds is limited by the server. Without compression: it would cost more time than it saves.
    options = {"ssl": address.ssl, "max_size": None, "max_queue": 4, "compression": None,
               "open_timeout": _OPENING_TIME, "close_timeout": _CLOSING_TIME, **connect_options(library.connect, headers)}
    try:
        return Socket(await library.connect(address.socket_url, **options))
    except asyncio.TimeoutError:
        raise Disconnected(f"the server at {address.shown} does not answer") from None
    except OSError as error:
        raise Disconnected(f"the server at {address.shown} cannot be reached: {error}") from None
    except WebSocketException as error:
        status = status_of(error)
        if status == 404 and address.interpreter:  # not all versions of the library show what the server says
            await exchange(address, "GET", path_of(address.interpreter))
        reason = f"it answers with the HTTP status {status}" if status else str(error)
        whose = f' with the interpreter "{address.interpreter}"' if address.interpreter else ""
        raise Disconnected(f"{address.shown} must be the address of a Numora server{whose}, but {reason}") from None
    except EOFError:
        raise Disconnected(f"the server at {address.shown} has closed the connection") from None
