"""What comes from the server: the events of a stream, and messages on channels."""

from __future__ import annotations

import dataclasses
from typing import Any, Callable, Optional

from .interpreters import Death, death_from

RESPONSES = "/eval/response/"
COMPLETION = RESPONSES + "completion"
EVENTS = "/eventmgr/0/"
NOTICES = "/connector/"


@dataclasses.dataclass(frozen=True)
class Message:
    """What was published on a channel. `request` names the request that caused it, `seq` is its number, 0 for none.

    `death` is that of the interpreter, where the message tells of it.
    """

    channel: str
    data: Any
    request: Optional[str] = None
    seq: int = 0
    prompt: Optional[int] = None
    echo: bool = True
    death: Optional[Death] = None


@dataclasses.dataclass(frozen=True)
class StreamEvent:
    """What every event of a stream is."""


@dataclasses.dataclass(frozen=True)
class Output(StreamEvent):
    """Text that was printed."""

    text: str


@dataclasses.dataclass(frozen=True)
class ErrorOutput(StreamEvent):
    """Text of an error, as a traceback."""

    text: str


@dataclasses.dataclass(frozen=True)
class Prompt(StreamEvent):
    """The interpreter is at a prompt, as "INPUT_PROMPT".

    One at which text can be typed has a `number`. `echo` is false when what is typed should not be shown.
    """

    name: str
    number: Optional[int] = None
    echo: bool = True


@dataclasses.dataclass(frozen=True)
class Clear(StreamEvent):
    """The text shown so far should be cleared."""


@dataclasses.dataclass(frozen=True)
class Home(StreamEvent):
    """What follows begins at the top left."""


@dataclasses.dataclass(frozen=True)
class Suggestion(StreamEvent):
    """A name that may have been meant, where there is none of that kind."""

    text: str


@dataclasses.dataclass(frozen=True)
class Event(StreamEvent):
    """An event that the code raised under a tag, as "progress"."""

    tag: str
    data: Any
    request: Optional[str] = None
    seq: int = 0


@dataclasses.dataclass(frozen=True)
class Dropped(StreamEvent):
    """Here so many messages of a channel were lost, because they were not taken in time.

    `first` and `last` are the numbers of the first and the last of them, 0 where they have none.
    """

    channel: str
    messages: int
    bytes: int
    first: int = 0
    last: int = 0


@dataclasses.dataclass(frozen=True)
class Gap(StreamEvent):
    """Here the server has not kept what came while there was no session: some of the messages `first` to `last`."""

    first: int
    last: int
    bytes: int


@dataclasses.dataclass(frozen=True)
class Completed(StreamEvent):
    """The code has ended. The last event of a stream, unless that ends with an error."""

    success: bool


_KINDS: dict[str, Callable[[Message], StreamEvent]] = {
    RESPONSES + "output": lambda m: Output(m.data),
    RESPONSES + "error": lambda m: ErrorOutput(m.data),
    RESPONSES + "iqminput": lambda m: Prompt(m.data, m.prompt, m.echo),
    RESPONSES + "commandwindow/clear": lambda m: Clear(),
    RESPONSES + "commandwindow/home": lambda m: Home(),
    RESPONSES + "suggest": lambda m: Suggestion(m.data),
    COMPLETION: lambda m: Completed(m.data == "Done: success"),
    NOTICES + "dropped": lambda m: Dropped(m.data["channel"], m.data["messages"], m.data["bytes"],
                                           m.data.get("from", 0), m.data.get("to", 0)),
    NOTICES + "gap": lambda m: Gap(m.data["from"], m.data["to"], m.data["bytes"]),
}


def message_from(raw: dict[str, Any]) -> Message:
    """The message of a delivery."""
    own = (raw.get("ext") or {}).get("connector") or {}
    death = death_from(own["death"]) if own.get("death") else None
    return Message(raw["channel"], raw["data"], own.get("request"), own.get("seq", 0), own.get("prompt"),
                   own.get("echo", True), death)


def event_from(message: Message) -> StreamEvent:
    """The event that a message of a stream tells of."""
    kind = _KINDS.get(message.channel)
    if kind:
        return kind(message)
    return Event(message.channel[message.channel.rfind("/") + 1:], message.data, message.request, message.seq)
