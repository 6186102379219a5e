"""A client of Numora Connector: runs code and calls functions in a remote interpreter, and streams what it prints.

    import numora_client

    with numora_client.connect("http://127.0.0.1:8350/?token=...") as client:
        print(client.eval("6 * 7").text)
        for event in client.stream("for i in range(3): print(i)"):
            print(event)

`connect` is for plain scripts; `Client` is the same for asyncio. All times are seconds, with fractions.
"""

from .client import Client, EvalResult
from .errors import AddressError, CallError, Disconnected, InterpreterDied, NotRun, NumoraError, PromptGone
from .events import (Clear, Completed, Dropped, ErrorOutput, Event, Gap, Home, Message, Output, Prompt, StreamEvent,
                     Suggestion)
from .interpreters import Death, DeathRecord, Interpreter, Limits, Request
from .streams import Messages, Stream
from .sync import SyncClient, SyncMessages, SyncStream, connect

__all__ = ["AddressError", "CallError", "Clear", "Client", "Completed", "Death", "DeathRecord", "Disconnected",
           "Dropped", "ErrorOutput", "EvalResult", "Event", "Gap", "Home", "Interpreter", "InterpreterDied", "Limits",
           "Message", "Messages", "NotRun", "NumoraError", "Output", "Prompt", "PromptGone", "Request", "Stream",
           "StreamEvent", "Suggestion", "SyncClient", "SyncMessages", "SyncStream", "connect"]
