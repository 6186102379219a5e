"""Function calls from clients: looks the function up, reads its JSON arguments, calls it."""

import json
import sys

import _numora_host

_RESULT_LIMIT = 10_000  # the most results that can be asked for


def call(name, nargout, texts):
    """Calls the named function with arguments given as JSON texts.

    Returns (results, fault, identifier): the results as a list, None or the message of what went wrong, and the
    identifier of that if it has one of its own.
    """
    try:
        count = _result_count(nargout)
        function = _find(name)
        values = _arguments(function, texts)
        return (_results(name, function(*values), count), None, "")
    except BaseException as error:
        return ([], message(error), _identifier(error))


def call_with_values(name, nargout, values):
    """Calls the named function, and returns its results as a list."""
    count = _result_count(nargout)
    return list(_results(name, _find(name)(*values), count))


def _identifier(error):
    try:
        return sys.modules["_numora_runtime"].identifier(error)
    except BaseException:
        return ""


def message(error):
    """What a client is told of an error."""
    if isinstance(error, RecursionError):
        return "RecursionError: the arguments, the call or its results are nested too deep"
    try:
        text = str(error)
    except KeyboardInterrupt:
        return "KeyboardInterrupt"
    except BaseException:
        text = ""
    text = sys.modules["_numora_runtime"].shortened(text)
    name = type(error).__name__
    return name + ": " + text if text else name


def _result_count(nargout):
    if not 0 <= nargout <= _RESULT_LIMIT or nargout != int(nargout):
        raise ValueError("the number of results must be a whole number from 0 to %d" % _RESULT_LIMIT)
    return int(nargout)


def _find(name):
    """Looks a name up in the workspace, then, dotted, through modules, then among the builtins."""
    head, *rest = name.split(".")
    found = _find_head(name, head, bool(rest))
    for attribute in rest:
        try:
            found = getattr(found, attribute)
        except AttributeError:
            module = _module(found.__name__ + "." + attribute) if isinstance(found, type(sys)) else None
            if module is None:
                raise
            found = module
    if not callable(found):
        raise TypeError("'%s' is no function but an object of type %s" % (name, type(found).__name__))
    return found


def _find_head(name, head, is_dotted):
    import builtins

    workspace = sys.modules["_numora_runtime"].variables
    if head in workspace:
        return workspace[head]
    module = _module(head) if is_dotted or head in sys.modules else None
    if module is not None:
        return module
    if hasattr(builtins, head):
        return getattr(builtins, head)
    raise NameError("there is no function named '%s'" % name)


def _module(name):
    """The named module, imported if need be, or None if there is none. What fails within it is raised."""
    import importlib

    try:
        return importlib.import_module(name)
    except ModuleNotFoundError as error:
        if error.name and (name + ".").startswith(error.name + "."):
            return None
        raise
    except ValueError:  # an empty name
        return None


def _arguments(function, texts):
    values = []
    for position, text in enumerate(texts):
        value = None
        if text[:1] == "[" and _wants_array(function, position):
            value = _array(text)
        values.append(_plain_argument(position, text) if value is None else value)
    return values


def _plain_argument(position, text):
    try:
        return json.loads(text, parse_constant=_refuse_constant)
    except ValueError as error:
        raise ValueError("argument %d is no JSON: %s" % (position + 1, error)) from None


def _refuse_constant(word):
    raise ValueError("there is no number %s" % word)


def _array(text):
    """The NumPy array that a JSON text holds, or None if it holds something else."""
    parts = _numora_host.read_array(text)
    if parts is None:
        return None
    import numpy

    elements, kind, shape = parts
    return numpy.frombuffer(elements, kind).reshape(shape)


def _wants_array(function, position):
    """Whether a list of numbers is to be given as a NumPy array: to functions of NumPy's, and for parameters
    that are annotated as arrays. Other functions may do with a list what they cannot do with an array."""
    numpy = sys.modules.get("numpy")
    if numpy is None:
        return False
    if isinstance(function, numpy.ufunc):
        return True
    module = getattr(function, "__module__", None)
    if isinstance(module, str) and module.split(".", 1)[0] == "numpy":
        return True
    return bool(getattr(function, "__annotations__", None)) and _is_array(_annotation(function, position), numpy)


def _annotation(function, position):
    import inspect

    try:
        parameters = list(inspect.signature(function, eval_str=True).parameters.values())
    except Exception:  # names in annotations need not exist
        return None
    if parameters and parameters[-1].kind is inspect.Parameter.VAR_KEYWORD:
        parameters.pop()
    if position < len(parameters):
        return parameters[position].annotation
    variable = [p.annotation for p in parameters if p.kind is inspect.Parameter.VAR_POSITIONAL]
    return variable[0] if variable else None


def _is_array(annotation, numpy):
    import types
    import typing

    if isinstance(annotation, type) and issubclass(annotation, numpy.ndarray):
        return True
    if typing.get_origin(annotation) is numpy.ndarray:
        return True
    typed = sys.modules.get("numpy.typing")
    if typed is not None and annotation == typed.ArrayLike:
        return True
    choices = ()
    if typing.get_origin(annotation) in (typing.Union, types.UnionType, typing.Annotated):
        choices = typing.get_args(annotation)
    return any(_is_array(choice, numpy) for choice in choices)


def _results(name, returned, count):
    if count == 0:
        return []
    if count == 1:
        return [returned]
    if not isinstance(returned, tuple) or len(returned) < count:
        have = len(returned) if isinstance(returned, tuple) else 1
        raise ValueError("'%s' returned %d results where %d are wanted" % (name, have, count))
    return returned[:count]
