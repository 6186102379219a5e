"""What can go wrong."""

from __future__ import annotations

import re
from typing import Any

from .interpreters import Death, death_from


class NumoraError(Exception):
    """What all errors of this package are."""


class AddressError(NumoraError, ValueError):
    """The address of the server, or the token, cannot be one."""


class Disconnected(NumoraError, ConnectionError):
    """The server cannot be reached, or has ended the session; whether a request under way has run is not known."""


class CallError(NumoraError):
    """A request was refused, or a called function failed.

    `code` is the number of a refusal, as 409, else 0; `identifier` says how it failed, where the failure has one.
    """

    def __init__(self, message: str, identifier: str = "", code: int = 0) -> None:
        super().__init__(message)
        self.identifier = identifier
        self.code = code


class NotRun(CallError):
    """The code was not run, because an interrupt came while it waited."""


class PromptGone(CallError):
    """What was typed was not taken, because its prompt is gone; nothing has run."""


class InterpreterDied(CallError):
    """The interpreter has died while the request was under way. Its variables are lost; the next request starts it anew.

    `death` says how, as do `sentence`, `cause`, `detail` and `life`, which are of it; Client.deaths() says more.
    """

    def __init__(self, death: Death, code: int = 502) -> None:
        super().__init__(death.sentence, code=code)
        self.death = death
        self.sentence, self.cause, self.detail, self.life = death.sentence, death.cause, death.detail, death.life

    def __reduce__(self) -> tuple[type[InterpreterDied], tuple[Death, int]]:
        return InterpreterDied, (self.death, self.code)


def refusal(reply: dict[str, Any]) -> CallError:
    """The error of an unsuccessful reply, whose text is `code:arguments:text`, or of the answer to a call."""
    error = reply.get("error") or "the server refused the request"
    parts = re.match(r"(\d{3}):([^:]*):", error)
    code = int(parts[1]) if parts else 0
    death = ((reply.get("ext") or {}).get("connector") or {}).get("death")
    if death:
        return InterpreterDied(death_from(death), code)
    data = reply.get("data")
    if isinstance(data, dict) and data.get("error"):
        return CallError(data["error"], code=code)
    if not parts:
        return CallError(error)
    text = error[parts.end():]
    if code == 409 and text == "the prompt is gone":
        return PromptGone("the prompt is gone, and nothing was typed", code=code)
    return CallError(f"{parts[2]}: {text}" if parts[2] else text, code=code)
