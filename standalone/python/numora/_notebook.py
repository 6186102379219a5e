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


def comm(kind, comm_id, target_name=None, data=None, metadata=None, buffers=()):
    """Passes on a message of a comm: "open", "msg" or "close", with its buffers in base64."""
    from ._comm import handle

    handle(kind, comm_id, target_name, data or {}, metadata, buffers)
    return True


def reset(count=0):
    """Makes a workspace that others share begin anew: variables, figures, comms and the count of cells."""
    import builtins

    from . import _cells, _guest, _user

    for name in [name for name in _user.variables if name[:2] != "__" and name not in _user.hidden]:
        _user.variables.pop(name, None)
    vars(builtins).pop("_", None)
    if "matplotlib._pylab_helpers" in sys.modules:
        sys.modules["matplotlib._pylab_helpers"].Gcf.destroy_all()
    if "numora._comm" in sys.modules:
        sys.modules["numora._comm"].manager.comms.clear()
    guest = _guest.made()
    if guest:
        guest.shell.history_manager.reset()
        guest.shell.init_user_ns()
    _cells.count = count
    return True


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
