"""The variables of the user, as clients see them."""

import collections
import sys
import types

from . import _user
from ._frames import measures
from ._objects import array_attribute, class_levels, class_name, copy, find, is_instance, numpy_type
from ._previews import preview
from ._tables import is_table

_SIZED = (str, bytes, bytearray, list, tuple, dict, set, frozenset, collections.deque, range)


def workspace():
    rows = []
    for name, value, kind, shape in variables():
        is_array = is_instance(value, numpy_type("ndarray"))
        shape, size = measures(value) or (shape, None)
        rows.append(
            {
                "name": name,
                "class": kind,
                "shape": shape,
                "bytes": int(array_attribute(value, "nbytes")) if is_array else size or _size(value),
                "text": preview(value, 100),
                "table": is_table(value),
            }
        )
    rows.sort(key=lambda row: (row["name"].casefold(), row["name"]))
    return rows


def variables():
    """The variables of the user, each as its name, its value, the name of its class and its shape."""
    hidden = _user.hidden
    for name, value in copy(_user.variables.items):
        if name in hidden and value is hidden[name]:
            continue
        if type(name) is str and name[:1] != "_" and name.isidentifier() and not is_instance(value, types.ModuleType):
            is_array = is_instance(value, numpy_type("ndarray"))
            shape = list(array_attribute(value, "shape")) if is_array else _shape(value)
            yield name, value, class_name(type(value)), shape


def _shape(value):
    for base in _SIZED if is_instance(value, _SIZED) else ():
        if is_instance(value, base):
            try:
                return [base.__len__(value)]
            except OverflowError:  # a range
                return []
    return []


def _size(value):
    measure = find(class_levels(type(value)), "__sizeof__")
    return sys.getsizeof(value) if type(measure) is types.MethodDescriptorType else object.__sizeof__(value)
