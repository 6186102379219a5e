"""Requests over HTTP: for interpreters as such, where Bayeux is for what they run."""

from __future__ import annotations

import asyncio
import json
from typing import Any, Optional

from .address import Address
from .errors import CallError, Disconnected, InterpreterDied
from .interpreters import death_from

_TIME = 60.0  # seconds until an answer counts as lost; a restart waits for the old life, and 30 seconds for the new one


async def exchange(address: Address, method: str, path: str, body: Optional[dict[str, Any]] = None) -> dict[str, Any]:
    """The answer to a request to a path of the server.  Throws: CallError, Disconnected."""
    return await asyncio.to_thread(_exchange, address, method, path, body)


def _exchange(address: Address, method: str, path: str, body: Optional[dict[str, Any]]) -> dict[str, Any]:
    import http.client  # here, because they take long, and few programs ask anything this way
    import urllib.error
    import urllib.request

    headers = {"Content-Type": "application/json"}
    if address.token:
        headers["Authorization"] = "Bearer " + address.token
    data = None if body is None else json.dumps(body).encode()
    request = urllib.request.Request(address.server + path, data, headers, method=method)
    # Connections go where those of the sessions go, past the proxies of the environment.
    opener = urllib.request.build_opener(urllib.request.ProxyHandler({}), urllib.request.HTTPSHandler(context=address.ssl))
    status = 200
    try:
        try:
            with opener.open(request, timeout=_TIME) as response:
                text = response.read()
        except urllib.error.HTTPError as error:
            with error:
                status, text = error.code, error.read()
        answer = json.loads(text or "{}")
    except (OSError, http.client.HTTPException) as error:
        raise Disconnected(f"the server at {address.shown} cannot be reached: {error}") from None
    except ValueError:
        answer = None
    if status < 400 and isinstance(answer, dict):
        return answer
    if not isinstance(answer, dict) or not isinstance(answer.get("error"), str):
        raise CallError(f"{address.shown} must be the address of a Numora server, but it answers with the HTTP status "
                        f"{status}", code=status)
    if answer.get("death"):
        raise InterpreterDied(death_from(answer["death"]), status)
    raise CallError(answer["error"], code=status)
