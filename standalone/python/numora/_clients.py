"""Functions that clients call while other code runs."""

import sys
from importlib import import_module


def complete(code, cursor):
    """Completes the word before the cursor, a position in UTF-16 code units.

    Returns {"matches": [...], "start": n, "end": n}: each match may replace what is between start and end.
    """
    return aside("_completion", "complete", code, cursor)


def inspect(name):
    """Describes what a dotted name stands for.

    Returns {"found": True, "name", "type", "signature", "doc", "source_file", "line", "text"}, or {"found": False}.
    """
    return aside("_inspection", "inspect", name)


def workspace():
    """Lists the variables of the user, each as {"name", "class", "shape", "bytes", "text"}."""
    return aside("_workspace", "workspace")


def is_complete(code):
    """Tells whether code can be run or more lines are to be awaited.

    Returns {"status": "complete", "incomplete" or "invalid", "indent": what the next line begins with}.
    """
    return aside("_completeness", "is_complete", code)


def history(n=None):
    """Lists the last n evaluations, or all that are kept, oldest first, each as {"number", "code"}."""
    return aside("_history", "history", n)


def state():
    """Tells what the interpreter does.

    Returns {"prompt": the name of the prompt, "number" and "seconds" of the evaluation that runs, "question": the open one}.
    """
    return aside("_state", "state")


def rows(name, begin, end):
    """Rows of a table, which is a variable or was shown, from `begin` to before `end`, with all values as short texts.

    Returns {"rows", "columns", "begin", "longest", "names", "dtypes", "numeric", "levels", "index", "cells"}.
    """
    return aside("_tables", "rows", name, begin, end)


def aside(module, name, *args):
    """Calls a function of a module, which is loaded at its first use, out of reach of the code that it interrupts: its
    debugger and its recursion limit.
    """
    trace, limit = sys.gettrace(), sys.getrecursionlimit()
    sys.setrecursionlimit(limit)  # fails where it could not be set back afterwards: on the last level
    try:
        if callable(trace):
            sys.settrace(None)
        sys.setrecursionlimit(limit + 1000)
        return getattr(import_module("numora." + module), name)(*args)
    finally:
        sys.setrecursionlimit(limit)
        if callable(trace):
            sys.settrace(trace)
