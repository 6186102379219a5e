"""Makes the arguments of calls out of JSON texts."""

import json
import sys

import _numora_host as _host


def arguments(function, texts):
    values = []
    for position, text in enumerate(texts):
        value = None
        if text[:1] == "[" and _wants_array(function, position):
            value = _array(text)
        values.append(_plain(position, text) if value is None else value)
    return values


def _plain(position, text):
    try:
        return json.loads(text, parse_constant=_refuse_constant)
    except ValueError as error:
        raise ValueError("argument %d must be JSON: %s" % (position + 1, error)) from None


def _refuse_constant(word):
    raise ValueError("%s is not a JSON number" % word)


def _array(text):
    """The NumPy array that a JSON text holds, or None if it holds something else."""
    parts = _host.read_array(text)
    if parts is None:
        return None
    import numpy

    elements, kind, shape = parts
    return numpy.frombuffer(elements, kind).reshape(shape)


def _wants_array(function, position):
    """Whether an array of numbers is to be given as a NumPy array: to functions of NumPy's, and for parameters
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
