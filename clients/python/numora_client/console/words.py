"""What the console says."""

from __future__ import annotations

import re

HELP = """\
NAME?  NAME??         what NAME is; with its source
Tab                   completes names, attributes, keys and modules
!COMMAND              runs a command of the shell, where the interpreter is
%time CODE            runs code and tells how long it took
%run FILE [ARGS...]   runs a file of Python code
%cd [DIR]  %pwd       changes the working directory, tells it
%who                  lists the variables
%restart              ends what runs with all variables, and begins anew
exit, quit, Ctrl-D    ends the console; exit(STATUS) with that status
Ctrl-C                discards what is typed, or interrupts what runs
Ctrl-\\                ends what runs with all variables, if no interrupt does
Enter runs what is complete, and a block that ends with a blank line;
Alt-Enter begins a line in any case. Up recalls whole blocks, Ctrl-R finds one.
"""

HINT = "Tab completes, NAME? explains, %help lists commands, Ctrl-D ends."
NEW = "New: output as it is printed; blocks edited and pasted whole; !COMMAND, %time."

ALREADY_WAITS = {
    "input": "The interpreter waits for input of other code; yours runs after that.",
    "busy": "The interpreter runs other code; yours runs after that.",
}
TAKE_BACK = " Ctrl-C takes yours back."
DEAF = "The code goes on after the interrupt. Ctrl-\\ ends it, with all variables."
OPEN_BLOCK = "the code ends inside an open block and was not run"
OFFLINE = "The connection to the server is lost; trying again. Ctrl-C gives up waiting for the code, which may go on."
UNREACHABLE = "The server cannot be reached; trying again. Ctrl-C gives up."
STARTED_AGAIN = "the server was started again: variables are lost, and what was typed was not run"
GIVEN_UP = "what came of the code is not known"
ANEW = "The interpreter was started anew; its variables are lost."
OWN_SERVER_ENDED = "the console's own interpreter has ended"


def death(sentence: str) -> str:
    """The server's sentence, in which requests of a console are code."""
    return re.sub(r"(?<= while it ran )(/eval/request|connector/v1/Eval)\b", "code", sentence)


def banner(program: str, python: str, where: str) -> str:
    """The first lines, each part of which may be empty."""
    first = ", ".join(part for part in (program or "Numora", python and "Python " + python, where) if part)
    return f"{first}\n{HINT}\n{NEW}\n"


def unknown_command(name: str) -> str:
    return f"there is no %{name}; %help lists what there is"


def not_found(name: str) -> str:
    return f'there is nothing with the name "{name}"'


def restarted(interpreter: str, life: int) -> str:
    return f'The interpreter "{interpreter}" has begun its life number {life}; its variables are lost.'


def skipped_text(count: int) -> str:
    return f"[{count} characters from before Ctrl-C are not shown]\n"


def lost_text(count: int) -> str:
    return f"[{count} bytes of text were lost here, because they were not taken in time]\n"
