"""The tables that were shown last, and the rows of tables for clients."""

import collections
import os
import weakref

from . import _user
from ._arrays import is_array, open_array
from ._frames import is_frame, open_frame
from ._lists import open_list
from ._objects import class_name, is_instance

_KEPT = 20
_ROWS, _COLUMNS = 500, 200  # of one answer
_TEXT, _SHORTEST, _ALL_TEXT = 200, 20, 2_000_000  # characters: of a cell, at least of one, of all in one answer

_shown = collections.OrderedDict()  # weak references by handle, the oldest first


def is_table(value):
    """Whether the value is best looked at as a table."""
    return is_frame(value) or is_array(value) or is_instance(value, list) and list.__len__(value) > 0


def _opened(value):
    return open_frame(value) or open_array(value) or open_list(value)


def keep(value):
    """Remembers a table that is shown, as long as it lives. Returns what clients need to ask for its rows, or None."""
    table = _opened(value)
    if table is None:
        return None
    handle = "#" + os.urandom(8).hex()  # no name of a variable, and none of another life of the interpreter
    try:
        _shown[handle] = weakref.ref(value)
    except TypeError:
        return None
    while len(_shown) > _KEPT:
        _shown.popitem(last=False)
    return {"table": handle, "rows": table.rows, "columns": table.columns}


def rows(name, begin, end):
    value = _find(name)
    table = _opened(value)
    if table is None:
        raise TypeError("'%s' is no table but an object of type %s" % (name, class_name(type(value))))
    begin = max(0, min(int(begin), table.rows))
    end = max(begin, min(int(end), table.rows, begin + _ROWS))
    width = min(table.columns, _COLUMNS)
    longest = max(_SHORTEST, min(_TEXT, _ALL_TEXT // max(1, (end - begin) * width)))
    cut = table.cut(begin, end, width, longest)
    return {
        "rows": table.rows,
        "columns": table.columns,
        "begin": begin,
        "longest": longest,
        "names": cut.names,
        "dtypes": cut.dtypes,
        "numeric": cut.numeric,
        "levels": cut.levels,
        "index": cut.index,
        "cells": list(zip(*cut.cells)) if cut.cells else [[]] * (end - begin),
    }


def _find(name):
    if not isinstance(name, str):
        raise TypeError("the table must be named by a string, not %s" % type(name).__name__)
    if name in _shown:
        value = _shown[name]()
        if value is not None:
            return value
    elif name[:1] != "#" and name in _user.variables:
        return _user.variables[name]
    raise LookupError("the table is not kept any more" if name[:1] == "#" else "there is no variable named '%s'" % name)
