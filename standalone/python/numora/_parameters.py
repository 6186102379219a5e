"""The parameters of functions as they were written, as far as that can be known without running code."""

import types

from ._objects import NOTHING, attribute, class_name

_TAKES_ARGS, _TAKES_KEYWORDS = 4, 8  # flags of code objects


def parameters(function, skipped, preview):
    """The parameters of a function but for the first `skipped` ones, in parentheses, and what it returns.

    `preview` makes a text of at most so many characters for a default.
    """
    code = function.__code__
    names = code.co_varnames
    count, total = code.co_argcount, code.co_argcount + code.co_kwonlyargcount
    defaults = dict(zip(reversed(names[:count]), reversed(function.__defaults__ or ())))
    defaults.update(function.__kwdefaults__ or {})
    annotations = function.__annotations__

    def described(name, prefix=""):
        text = prefix + name
        if name in annotations:
            text += ": " + _annotation(annotations[name], preview)
        if name in defaults:
            text += (" = " if name in annotations else "=") + preview(defaults[name], 100)
        return text

    parts = [described(name) for name in names[:count]]
    if code.co_posonlyargcount > skipped:
        parts.insert(code.co_posonlyargcount, "/")
    parts = parts[skipped:]
    if code.co_flags & _TAKES_ARGS:
        parts.append(described(names[total], "*"))
    elif code.co_kwonlyargcount:
        parts.append("*")
    parts += [described(name) for name in names[count:total]]
    if code.co_flags & _TAKES_KEYWORDS:
        parts.append(described(names[total + bool(code.co_flags & _TAKES_ARGS)], "**"))
    result = " -> " + _annotation(annotations["return"], preview) if "return" in annotations else ""
    return "(%s)%s" % (", ".join(parts), result)


def keywords(function, skipped):
    """The parameters but for the first `skipped` ones that arguments can name."""
    code = function.__code__
    return code.co_varnames[max(skipped, code.co_posonlyargcount) : code.co_argcount + code.co_kwonlyargcount]


def _annotation(value, preview):
    if issubclass(type(value), str):
        return str.__str__(value)
    if issubclass(type(value), type):
        return "None" if value is types.NoneType else class_name(value)
    arguments, _ = attribute(value, "__args__")
    if type(arguments) is not tuple:
        label, _ = attribute(value, "_name")
        return label if type(label) is str else preview(value, 100)
    parts = [_annotation(argument, preview) for argument in arguments]
    origin, _ = attribute(value, "__origin__")
    if origin is NOTHING:
        return " | ".join(parts)
    return "%s[%s]" % (_annotation(origin, preview), ", ".join(parts))
