"""Where errors come from: the errors that led to them, and the function outside of Python code in which they arose."""

import ast
import linecache
import opcode
import sys
import types
from itertools import islice

from ._objects import HEAP_TYPE, resolve

_CAUSE_LIMIT = 100


def causes(error):
    """The errors that led to it, nearest first: those that it was raised from, or while they were being handled."""
    found, seen = [], {id(error)}
    while len(found) < _CAUSE_LIMIT:
        cause = error.__cause__
        if cause is None and not error.__suppress_context__:
            cause = error.__context__
        if cause is None or id(cause) in seen:
            break
        seen.add(id(cause))
        found.append(cause)
        error = cause
    return found


def origin(error):
    """The builtin function in which an error arose, as (its name, whether it belongs to a compiled extension).

    (None, False) where the code itself raised it, or an operation such as a division. An exception knows no more than
    the call at which it left Python code; the function is looked up again by the name that the call has there.
    """
    trace = error.__traceback__
    if trace is None:
        return None, False
    while trace.tb_next is not None:
        trace = trace.tb_next
    function = _called(trace)
    if function is None:
        return None, False
    name, module = function
    return name, module not in sys.builtin_module_names


def _called(trace):
    frame, code = trace.tb_frame, trace.tb_frame.f_code
    if code.co_filename.startswith("<numora."):
        return None
    operation = opcode.opname[code.co_code[trace.tb_lasti]]
    if "CALL" not in operation or "INTRINSIC" in operation:
        return None
    call = ast.parse("(%s)" % _source(code, trace.tb_lasti, frame.f_globals), mode="eval").body
    if not isinstance(call, ast.Call):
        return None
    value, names = call.func, []
    while isinstance(value, ast.Attribute):
        names.insert(0, value.attr)
        value = value.value
    if isinstance(value, ast.Name):
        names.insert(0, value.id)
        scopes = frame.f_locals, frame.f_globals, frame.f_builtins
    elif isinstance(value, ast.Constant):
        names.insert(0, "")
        scopes = ({"": value.value},)
    else:
        return None
    return _native(resolve(names, scopes)[0])


def _source(code, instruction, scope):
    first, last, begin, end = next(islice(code.co_positions(), instruction // 2, None))
    lines = [linecache.getline(code.co_filename, line, scope).encode() for line in range(first, last + 1)]
    lines[-1] = lines[-1][:end]
    lines[0] = lines[0][begin:]
    return b"".join(lines).decode()


def _native(function):
    """The name and the module of a function that is not made of Python code; None for all others."""
    kind = type(function)
    if kind in (types.BuiltinFunctionType, types.MethodWrapperType):
        owner = function.__self__
        module = None if isinstance(owner, types.ModuleType) else type.__dict__["__module__"].__get__(type(owner))
        return function.__qualname__, module or function.__module__
    if kind in (types.MethodDescriptorType, types.WrapperDescriptorType, types.ClassMethodDescriptorType):
        return function.__qualname__, function.__objclass__.__module__
    if kind is type:
        return None if function.__flags__ & HEAP_TYPE else (function.__qualname__, function.__module__)
    if kind.__flags__ & HEAP_TYPE or kind in (types.FunctionType, types.MethodType) or not callable(function):
        return None
    name = getattr(function, "__name__", None)  # as functions of NumPy's have
    return (name, kind.__module__) if isinstance(name, str) else None
