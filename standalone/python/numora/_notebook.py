"""What a notebook kernel asks of the interpreter: answers in the forms of the Jupyter protocol, positions in characters."""

import sys

from ._clients import aside


def complete(code, cursor):
    """Completes the word before the cursor: {"matches", "cursor_start", "cursor_end", "metadata"}."""
    return aside("_assistance", "complete", code, cursor)


def inspect(code, cursor, detail=0):
    """Describes what stands at the cursor: {"found", "data", "metadata"}. With detail 1 the source is added."""
    return aside("_assistance", "inspect", code, cursor, detail)


def is_complete(code):
    """Tells whether code can be run or more lines are to be awaited: {"status", "indent"}."""
    return aside("_assistance", "is_complete", code)


def expressions(expressions):
    """The bundles of the values of expressions, or their errors, each by the name that its expression has."""
    return {name: _answer(expression) for name, expression in expressions.items()}


def comm_info(target_name=None):
    """The open comms, or those of a target: {"comms": {id: {"target_name"}}}."""
    comms = sys.modules.get("numora._comm")
    return {"comms": comms.info(target_name) if comms else {}}


def _answer(expression):
    import json

    from . import _user
    from ._bundle import ignore, representations
    from ._errors import report

    try:
        value = eval(compile(expression.strip(), "<expression>", "eval", dont_inherit=True), _user.variables)
        data, metadata = representations(value, ignore)
        json.dumps([data, metadata])
        return {"status": "ok", "data": data, "metadata": metadata}
    except BaseException as error:
        _, name, message, text, *_ = report(error)
        return {"status": "error", "ename": name, "evalue": message, "traceback": text.splitlines()}
