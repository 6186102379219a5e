"""Tells whether what was typed is to be run or goes on, by its syntax alone, so that nobody has to be asked."""

from __future__ import annotations

import ast
import codeop
import re
import warnings

from .commands import first_of, is_command

_CLOSING = re.compile(r"\s*(return|raise|pass|break|continue)\b")


def is_complete(text: str, is_closed: bool = False) -> bool:
    """Whether Enter at its end runs it: code of more than one line that ends with a block needs a blank line, unless
    it is one that `is_closed`.
    """
    if text.endswith("\\"):
        return False
    text, rest = first_of(text)
    while rest.strip():
        text, rest = first_of(rest)
    if is_command(text):
        return True
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            if codeop.compile_command(text + "\n", "<input>", "exec") is None:
                return False
    except (SyntaxError, ValueError, OverflowError, MemoryError, RecursionError):
        return True  # the interpreter says what is wrong
    last = text.rpartition("\n")[2]
    return is_closed or not last.strip() or not _ends_in_block(text)


def _ends_in_block(text: str) -> bool:
    try:
        body = ast.parse(text).body
    except (SyntaxError, ValueError, MemoryError, RecursionError):
        return False
    if not body or not (hasattr(body[-1], "body") or hasattr(body[-1], "cases")):
        return False
    return body[-1].end_lineno != body[-1].lineno


def next_indent(before: str) -> str:
    """What a line begins with that follows `before`."""
    line = before.rpartition("\n")[2]
    indent = line[: len(line) - len(line.lstrip(" \t"))]
    code = line.partition("#")[0].rstrip() if line.count("#") and not re.search("['\"]", line) else line.rstrip()
    if code.endswith((":", "(", "[", "{")):
        return indent + ("\t" if "\t" in indent else "    ")
    return indent[:-4] if _CLOSING.match(line) and indent.endswith("    ") else indent
