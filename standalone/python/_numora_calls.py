"""Function calls from clients: JSON arguments in, JSON results out."""

import json
import math
import sys

_RESULT_LIMIT = 10_000  # the most results that can be asked for


def call(name, nargout, arguments):
    """Calls the named function with arguments given as JSON texts.

    Returns (results, fault): the results as one JSON array text, and None or the message of what went wrong.
    """
    try:
        count = _result_count(nargout)
        function = _find(name)
        values = [_argument(position, text) for position, text in enumerate(arguments, 1)]
        results = _results(name, function(*values), count)
        return (json.dumps([_plain(r) for r in results], separators=(",", ":"), allow_nan=False), None)
    except RecursionError:
        return ("[]", "RecursionError: the arguments, the call or its results are nested too deep")
    except BaseException as error:
        return ("[]", _message(error))


def _result_count(nargout):
    if not 0 <= nargout <= _RESULT_LIMIT or nargout != int(nargout):
        raise ValueError("the number of results must be a whole number from 0 to %d" % _RESULT_LIMIT)
    return int(nargout)


def _find(name):
    """Looks a name up in the workspace, then, dotted, through modules, then among the builtins."""
    import builtins

    head, *rest = name.split(".")
    workspace = sys.modules["_numora_runtime"].variables
    if head in workspace:
        found = workspace[head]
    elif rest or head in sys.modules:
        found, rest = _import(name)
    elif hasattr(builtins, head):
        found = getattr(builtins, head)
    else:
        raise NameError("there is no function named '%s'" % name)
    for attribute in rest:
        found = getattr(found, attribute)
    if not callable(found):
        raise TypeError("'%s' is no function but an object of type %s" % (name, type(found).__name__))
    return found


def _import(name):
    """The longest leading part of a dotted name that is a module, and the names behind it."""
    import importlib

    parts = name.split(".")
    module = None
    for length in range(1, len(parts) + 1):
        try:
            module = importlib.import_module(".".join(parts[:length]))
        except ModuleNotFoundError as error:
            if module is not None:
                return module, parts[length - 1 :]
            raise NameError("there is no function named '%s'" % name) from error
    return module, []


def _argument(position, text):
    try:
        return json.loads(text)
    except ValueError as error:
        raise ValueError("argument %d is no JSON: %s" % (position, error)) from None


def _results(name, returned, count):
    if count == 0:
        return []
    if count == 1:
        return [returned]
    if not isinstance(returned, tuple) or len(returned) < count:
        have = len(returned) if isinstance(returned, tuple) else 1
        raise ValueError("'%s' returned %d results where %d are wanted" % (name, have, count))
    return returned[:count]


def _plain(value):
    """The same value made of what JSON has: NaN and infinities as null, complex numbers as {"re": , "im": }."""
    if value is None or isinstance(value, (bool, str)):
        return value
    if isinstance(value, int):
        return int(value)
    if isinstance(value, float):
        return float(value) if math.isfinite(value) else None
    if isinstance(value, complex):
        return {"re": _plain(value.real), "im": _plain(value.imag)}
    if isinstance(value, (list, tuple)):
        return [_plain(v) for v in value]
    if isinstance(value, dict):
        return {_key(k): _plain(v) for k, v in value.items()}
    numpy = sys.modules.get("numpy")
    if numpy and isinstance(value, (numpy.ndarray, numpy.generic)) and value.dtype.kind in "biufcU":
        return _plain(value.tolist())
    raise TypeError("a result of type %s has no JSON form" % type(value).__name__)


def _key(key):
    if isinstance(key, str):
        return key
    raise TypeError("a key of type %s has no JSON form" % type(key).__name__)


def _message(error):
    try:
        text = str(error)
    except BaseException:
        text = ""
    name = type(error).__name__
    return name + ": " + text if text else name
