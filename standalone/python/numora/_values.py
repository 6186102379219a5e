"""What the expression before a cursor stands for, as far as that can be known without running anybody's code."""

import builtins
import keyword
import re
import types

from . import _user
from ._inspection import called
from ._labels import frame_kind, labels
from ._objects import (
    NOTHING,
    Instance,
    attribute,
    class_levels,
    class_name,
    class_of,
    copy,
    find,
    is_instance,
    own_vars,
    pandas_type,
    resolve,
)
from ._scanner import parse

_LIMIT = 10_000  # characters of an expression
_MOST_KEYS = 100_000
_IS_STEPWISE = 0x20 | 0x80 | 0x200  # flags of the code of generators and coroutines, whose annotation is not what a call gives
_NAME = re.compile(r"(?<!\w)[^\W\d]\w*\Z")
_CLASS = re.compile(r"([\w.]+)(?:\[.*\])?(?:\s*\|.*)?")  # as annotations name it; the first of several
_DISPLAYS = {
    "List": list, "ListComp": list, "Dict": dict, "DictComp": dict,
    "Set": set, "SetComp": set, "Tuple": tuple, "JoinedStr": str,
}  # fmt: skip
_PLAIN = {id(kind) for kind in (str, int, float, bool, bytes, types.NoneType)}
_PARTS = {"List", "ListComp", "Compare", "BinOp", "Slice"}  # of a table, by labels, by a condition, by their places


def value_before(text, scanner):
    """The value of what `text` ends with: names, literals, and attributes, items and calls of them."""
    expression = text[_begin(text, scanner) :].strip()
    if not expression or len(expression) > _LIMIT:
        return NOTHING
    try:
        return _value(parse("(%s)" % expression, "eval").body)
    except (SyntaxError, ValueError, MemoryError, RecursionError):
        return NOTHING


def _begin(text, scanner):
    def before(at):
        while at > scanner.statement and text[at - 1].isspace():
            at -= 1
        return at

    begin = at = before(len(text))
    while len(text) - begin <= _LIMIT:
        opened = scanner.begins.get(at)
        if opened is not None:
            begin = opened
            if text[begin] not in "([":
                break
            at = before(begin)
            continue
        name = _NAME.search(text, max(scanner.statement, at - 500), at)
        if not name or keyword.iskeyword(name[0]):
            break
        begin, at = name.start(), before(name.start())
        if at == scanner.statement or text[at - 1] != ".":
            break
        begin = at = before(at - 1)
    return begin


def _value(node):
    kind = type(node).__name__
    if kind == "Name":
        return find((_user.variables, vars(builtins)), node.id)
    if kind == "Constant":
        return node.value
    if kind == "Attribute":
        return _member(_value(node.value), node.attr)
    if kind == "Subscript":
        return _item(_value(node.value), node.slice)
    if kind == "Call":
        function = _value(node.func)
        return Instance(function) if is_instance(function, type) else _result(function)
    return _DISPLAYS[kind]() if kind in _DISPLAYS else NOTHING


def _member(value, name):
    if value is NOTHING:
        return NOTHING
    found, is_value = attribute(value, name)
    if is_value:
        return found
    if found is NOTHING:
        return _column(value, name)
    if type(found) is property and is_instance(value, type):
        return found
    kind = class_name(type(found))
    if kind == "AxisProperty" and frame_kind(value):
        return Instance(pandas_type("Index"))
    accessor = own_vars(found).get("_accessor") if kind == "CachedAccessor" else None
    return Instance(accessor) if is_instance(accessor, type) else _result(found, value)


def _column(frame, name):
    if frame_kind(frame) != "DataFrame" or name not in labels(frame):
        return NOTHING
    has_levels = type(frame.columns) is pandas_type("MultiIndex")
    return Instance(pandas_type("DataFrame" if has_levels else "Series"))


def _item(value, index):
    kind = type(index).__name__
    if frame_kind(value):
        return Instance(pandas_type(frame_kind(value))) if kind in _PARTS else _column(value, _key(index))
    base = next((base for base in (dict, list, tuple, str) if is_instance(value, base)), None)
    if base is None or find(class_levels(type(value)), "__getitem__") is not vars(base)["__getitem__"]:
        return NOTHING
    if kind == "Slice":
        return base()
    key = _key(index)
    if base is dict:
        return _entry(value, key)
    size = base.__len__(value)
    return base.__getitem__(value, key) if type(key) is int and -size <= key < size else NOTHING


def _entry(value, key):
    """What a dictionary has for a key, among its first ones: other keys with its hash may compare by code of their own."""
    for other, found in copy(lambda: iter(dict.items(value)), _MOST_KEYS):
        if type(other) is type(key) and id(type(key)) in _PLAIN and other == key:
            return found
    return NOTHING


def _key(node):
    """What is in the brackets, where that is of a type that hashes and compares as Python does."""
    kind = type(node).__name__
    if kind == "UnaryOp" and type(node.op).__name__ == "USub":
        key = _key(node.operand)
        return -key if type(key) is int else NOTHING
    if kind == "Tuple":
        return tuple(map(_key, node.elts))
    key = _value(node) if kind in ("Constant", "Name") else NOTHING
    return key if id(type(key)) in _PLAIN else NOTHING


def _result(value, owner=NOTHING):
    """What a call of a function gives, or a property, where its annotation names a class."""
    owner = value.__self__ if type(value) is types.MethodType else owner
    function, _ = called(value)
    if function is None or function.__code__.co_flags & _IS_STEPWISE:
        return NOTHING
    annotations = function.__annotations__
    if type(annotations) is not dict:
        return NOTHING
    returned = annotations.get("return")
    own = annotations.get("".join(function.__code__.co_varnames[:1]))
    if owner is not NOTHING and own is not None and (own is returned or type(own) is type(returned) is str and own == returned):
        return Instance(class_of(owner))  # def method(self: T) -> T
    named = _CLASS.fullmatch(returned[:200]) if type(returned) is str else None
    if named:
        returned, _ = resolve(named[1].split("."), (function.__globals__, vars(builtins)))
    return Instance(returned) if is_instance(returned, type) else NOTHING
