"""Short texts for values, made without running their code."""

import collections
import types

from ._objects import (
    HEAP_TYPE,
    array_attribute,
    attribute,
    class_flags,
    class_module,
    class_name,
    copy,
    numpy_type,
    own_vars,
)
from ._parameters import parameters

_SHOWN_AS = (
    (list, "[", "]"),
    (tuple, "(", ")"),
    (dict, "{", "}"),
    (set, "{", "}"),
    (frozenset, "{", "}"),
    (collections.deque, "[", "]"),
)
_DEPTH = 3  # of containers in containers
_PLAIN = {id(list): "[]", id(tuple): "()", id(dict): "{}"}
_NATIVE_REPR = {"datetime.date", "datetime.datetime", "datetime.timedelta", "decimal.Decimal"}


def cut(text, limit):
    return text if len(text) <= limit else text[: max(0, limit - 3)] + "..."


def preview(value, limit, depth=_DEPTH):
    """A text for `value` that takes time in proportion to `limit`, whatever the size of `value`."""
    kind = type(value)
    if kind is float or kind is int and -1 << 62 < value < 1 << 62 or kind is str and len(value) <= limit:
        return cut(repr(value), limit)
    if id(kind) in _PLAIN:
        opening, closing = _PLAIN[id(kind)]
        return cut(opening + _items(value, kind, limit - 2, depth) + closing, limit)
    for base in (str, bytes, bytearray):
        if issubclass(kind, base):
            return cut(base.__repr__(base.__getitem__(value, slice(limit))), limit)
    if value is None or kind is bool:
        return str(value)
    for base in (float, complex):
        if issubclass(kind, base):
            return base.__repr__(value)
    if issubclass(kind, int):
        bits = int.bit_length(value)
        return cut(int.__repr__(value), limit) if bits <= 2000 else "<int of %d bits>" % bits
    for base, opening, closing in _SHOWN_AS:
        if issubclass(kind, base):
            items = _items(value, base, limit - 2, depth)
            return cut("%s(%s)" % (class_name(kind), opening + items + closing if items else ""), limit)
    return cut(_object(value, kind, limit, depth), limit)


def _items(value, base, limit, depth):
    if depth == 0:
        return "..."
    iterate = base.items if base is dict else base.__iter__
    items = copy(lambda: iterate(value), max(3, limit // 10) if depth == _DEPTH else 3)
    parts = []
    for item in items:
        if limit <= 0:
            break
        if base is dict:
            parts.append("%s: %s" % (preview(item[0], limit, depth - 1), preview(item[1], limit, depth - 1)))
        else:
            parts.append(preview(item, limit, depth - 1))
        limit -= len(parts[-1]) + 2
    if len(parts) < base.__len__(value):
        parts.append("...")
    return ", ".join(parts) + ("," if base is tuple and len(parts) == 1 else "")


def _object(value, kind, limit, depth):
    name = class_name(kind)
    if issubclass(kind, numpy_type("ndarray")):
        shape = "x".join(map(str, array_attribute(value, "shape"))) or "scalar"
        return "%s %s" % (shape, class_name(array_attribute(value, "dtype").type).rstrip("_"))
    if not class_flags(kind) & HEAP_TYPE and _has_native_repr(value, kind):
        return repr(value)
    if kind is types.FunctionType:
        return value.__name__ + parameters(value, 0, preview)
    if issubclass(kind, type):
        return "<class %s>" % class_name(value)
    own = copy(own_vars(value).items, 10) if depth > 0 and kind is not types.ModuleType else []
    fields = ["%s=%s" % (k, preview(v, limit // 3, depth - 1)) for k, v in own if type(k) is str and k[:1] != "_"]
    label = ", ".join(fields) or attribute(value, "__name__")[0]
    return "<%s %s>" % (name, label) if type(label) is str else "<%s>" % name


def _has_native_repr(value, kind):
    if any(issubclass(kind, numpy_type(name)) for name in ("number", "bool_", "datetime64")):
        return True
    if kind is range:
        return all(abs(n) < 1 << 64 for n in (value.start, value.stop, value.step))
    # A time zone's __repr__ may be anything.
    name = "%s.%s" % (class_module(kind), class_name(kind))
    return name in _NATIVE_REPR and (name != "datetime.datetime" or value.tzinfo is None)
