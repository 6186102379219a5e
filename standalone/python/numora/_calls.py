"""Function calls from clients."""

from ._arguments import arguments
from ._capabilities import identifier
from ._lookup import find_function
from ._texts import shortened

_RESULT_LIMIT = 10_000  # the most results that can be asked for


def call(name, nargout, texts):
    """Calls the named function with arguments given as JSON texts.

    Returns (results, fault, identifier): the results as a list, None or the message of what went wrong, and the
    identifier of that if it has one of its own.
    """
    try:
        count = _result_count(nargout)
        function = find_function(name)
        values = arguments(function, texts)
        return (_results(name, function(*values), count), None, "")
    except BaseException as error:
        return ([], message(error), _identifier(error))


def call_with_values(name, nargout, values):
    """Calls the named function, and returns its results as a list."""
    count = _result_count(nargout)
    return list(_results(name, find_function(name)(*values), count))


def _identifier(error):
    try:
        return identifier(error)
    except BaseException:
        return ""


def message(error):
    """What a client is told of an error."""
    if isinstance(error, RecursionError):
        return "RecursionError: the arguments, the call or its results are nested too deeply"
    try:
        text = str(error)
    except KeyboardInterrupt:
        return "KeyboardInterrupt"
    except BaseException:
        text = ""
    text = shortened(text)
    name = type(error).__name__
    return name + ": " + text if text else name


def _result_count(nargout):
    if not 0 <= nargout <= _RESULT_LIMIT or nargout != int(nargout):
        raise ValueError("nargout must be an integer between 0 and %d" % _RESULT_LIMIT)
    return int(nargout)


def _results(name, returned, count):
    if count == 0:
        return []
    if count == 1:
        return [returned]
    if not isinstance(returned, tuple) or len(returned) < count:
        have = len(returned) if isinstance(returned, tuple) else 1
        raise ValueError("'%s' must return %d results, but returned %d" % (name, count, have))
    return returned[:count]
