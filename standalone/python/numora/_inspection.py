"""Describes what a name stands for."""

import builtins
import functools
import re
import sys
import types

from . import _user
from ._objects import NOTHING, attribute, class_levels, class_name, class_vars, copy, find, is_instance, own_vars, resolve
from ._parameters import keywords, parameters
from ._previews import cut, preview

_BOUND = {id(types.MethodType), id(classmethod), id(staticmethod)}


def found(name):
    """What a dotted name stands for, or NOTHING."""
    names = name.split(".") if is_instance(name, str) and len(name) <= 1000 else [""]
    loaded = {key: module for key, module in copy(sys.modules.items) if module is not None}
    return resolve(names, (_user.variables, loaded, vars(builtins)))[0]


def inspect(name):
    value = found(name)
    if value is NOTHING:
        return {"found": False}
    file, line = _source(value)
    return {
        "found": True,
        "name": name,
        "type": class_name(type(value)),
        "signature": _signature(value),
        "doc": _doc(value),
        "source_file": file,
        "line": line,
        "text": preview(value, 2000),
    }


def _doc(value):
    doc = class_vars(value).get("__doc__") if is_instance(value, type) else attribute(value, "__doc__")[0]
    if type(doc) is not str:
        return None
    first, *rest = doc[:100_000].strip().expandtabs().split("\n")
    margin = min((len(line) - len(line.lstrip()) for line in rest if line.strip()), default=0)
    return cut("\n".join([first, *(line[margin:].rstrip() for line in rest)]), 20_000)


def _function_of(value):
    """The function that was written where `value` was bound, wrapped or decorated."""
    for _ in range(10):
        if id(type(value)) in _BOUND:
            value = value.__func__
        elif type(value) is property:
            value = value.fget
        elif type(value) is functools.cached_property:
            value = value.func
        else:
            value = own_vars(value).get("__wrapped__", value)
    return value


def called(value):
    """The function that a call of `value` runs, and how many of its first parameters that fills; None without one."""
    if is_instance(value, type):
        candidates = [(find(class_levels(value), name), 1) for name in ("__init__", "__new__")]
    else:
        called = find(class_levels(type(value)), "__call__")
        candidates = [(value, type(value) is types.MethodType), (called, 1)]
    for candidate, skipped in candidates:
        function = _function_of(candidate)
        if type(function) is types.FunctionType:
            return function, int(skipped)
    return None, 0


def keyword_names(value):
    """The names that arguments of a call may be given with."""
    function, skipped = called(value)
    if function:
        return keywords(function, skipped)
    text, _ = attribute(value, "__text_signature__")
    if type(text) is str:
        return re.findall(r"[(,]\s*([^\W\d]\w*)\s*(?=[=,)])", text[:2000].rpartition("/")[2])
    described = re.match(r"[\w.]+\(([^()]*(?:\([^()]*\)[^()]*)*)\)", (_doc(value) or "")[:2000])
    return re.findall(r",\s*([^\W\d]\w*)=", "," + described[1]) if described else []


def _signature(value):
    """The parameters in parentheses, or None."""
    function, skipped = called(value)
    if function and type(value) is not property:
        return cut(parameters(function, skipped, preview), 2000)
    text, _ = attribute(value, "__text_signature__")
    if type(text) is not str:
        return None
    if type(value) is types.BuiltinFunctionType:  # its first argument is bound already
        return re.sub(r"^\(\$\w+(, /)?(, )?", "(", text[:2000])
    return text[:2000].replace("$", "", 1)


def _source(value):
    """File and line of a function; file of a class or module."""
    if type(value) is types.ModuleType:
        file = vars(value).get("__file__")
        return (file if type(file) is str else None), None
    function = _function_of(value)
    if type(function) is types.FunctionType:
        return function.__code__.co_filename, function.__code__.co_firstlineno
    if not is_instance(value, type):
        return None, None
    for method in copy(class_vars(value).values):
        if type(method) is types.FunctionType and method.__code__.co_filename != "<string>":  # not made by exec()
            return method.__code__.co_filename, None
    name = class_vars(value).get("__module__")
    module = sys.modules.get(name) if type(name) is str else None
    return _source(module) if type(module) is types.ModuleType else (None, None)
