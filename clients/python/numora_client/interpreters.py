"""What the server says of its interpreters. All times are in UTC, as "2026-11-22T08:15:00Z"; what is not known is empty."""

from __future__ import annotations

import dataclasses
import re
from typing import Any, Optional


@dataclasses.dataclass(frozen=True)
class Request:
    """A request that runs since `ms` milliseconds, or one that was the last, with the beginning of its `code`."""

    type: str = ""
    uuid: str = ""
    ms: int = 0
    code: str = ""


@dataclasses.dataclass(frozen=True)
class Death:
    """How a life of an interpreter has ended: `cause` and `detail`, as "signal" and "SIGSEGV", and a sentence for people."""

    life: int = 0
    cause: str = ""
    detail: str = ""
    sentence: str = ""
    ended: str = ""


@dataclasses.dataclass(frozen=True)
class DeathRecord(Death):
    """The same with what helps to find out why: `rest` is what native code printed last, `trace` where each thread was."""

    interpreter: str = ""
    pid: int = 0
    started: str = ""
    request: Optional[Request] = None
    in_flight: int = 0
    output: str = ""
    rest: str = ""
    trace: str = ""
    peak_memory_bytes: int = 0
    processor_ms: int = 0
    children_killed: int = 0


@dataclasses.dataclass(frozen=True)
class Limits:
    """What an interpreter may have, 0 for no limit, and who sees to it: "rlimit", "cgroup" or "none"."""

    memory_mib: int = 0
    cpus: float = 0
    enforced_by: str = ""


@dataclasses.dataclass(frozen=True)
class Interpreter:
    """An interpreter of the server.

    `state` is "absent", "starting", "ready", "stopping", "dead" or "failed"; `activity`, when it is ready, "busy", "idle"
    or "input"; `health` "ok", "deaf" when native code lets no interrupt through, or "silent" when the process is stopped.
    """

    id: str = ""
    state: str = ""
    activity: str = ""
    health: str = ""
    life: int = 0
    since: str = ""
    request: Optional[Request] = None
    memory_bytes: int = 0
    processor_ms: int = 0
    limits: Limits = Limits()
    last_death: Optional[Death] = None


_KINDS = {"request": Request, "limits": Limits, "last_death": Death}


def _name(name: str) -> str:
    return re.sub("MiB|[A-Z]", lambda found: "_" + found[0].lower(), name)


def _from(kind: Any, raw: dict[str, Any]) -> Any:
    """Of the members those that the class has; null is as none."""
    values = {_name(name): value for name, value in raw.items() if value is not None}
    known = {field.name for field in dataclasses.fields(kind)} & values.keys()
    return kind(**{name: _from(_KINDS[name], values[name]) if name in _KINDS else values[name] for name in known})


def death_from(raw: dict[str, Any]) -> Death:
    death: Death = _from(Death, raw)
    return death


def record_from(raw: dict[str, Any]) -> DeathRecord:
    record: DeathRecord = _from(DeathRecord, raw)
    return record


def interpreter_from(raw: dict[str, Any]) -> Interpreter:
    interpreter: Interpreter = _from(Interpreter, raw)
    return interpreter
