"""Texts for the cells of tables, made without running the user's code."""

import datetime
import decimal
import sys
import types

from ._objects import HEAP_TYPE, class_flags, numpy_type
from ._previews import cut, preview

_PLAIN = {id(kind) for kind in (datetime.date, datetime.time, datetime.timedelta, decimal.Decimal)}
_OF_PANDAS = ("Timestamp", "Timedelta", "Period", "Interval", "NaT", "NA")


class Cut:
    """Some rows of a table: names and types of the columns, their cells, and the labels of the rows by level."""

    def __init__(self, longest):
        self.longest = longest
        self.names, self.dtypes, self.numeric, self.cells = [], [], [], []
        self.levels, self.index = [], []
        self._ways = {}  # by the address of the type, whose metaclass may define hash()
        self._plain = _PLAIN | _types_of_pandas()

    def add(self, name, dtype, values):
        """Adds a column; `dtype` is None where there is none."""
        self.names.append(name)
        self.dtypes.append(None if dtype is None else cut(str(dtype), self.longest))
        kind = getattr(dtype, "kind", "O")
        self.numeric.append(kind in "iufc" if kind != "O" else _are_numbers(values))
        self.cells.append([self.text(value) for value in values])

    def text(self, value):
        kind = type(value)
        way = self._ways.get(id(kind))
        if way is None:
            way = self._ways[id(kind)] = self._way(kind)
        return way(value)

    def _way(self, kind):
        is_native = not class_flags(kind) & HEAP_TYPE
        if issubclass(kind, str):
            return self._string
        if kind is float or is_native and issubclass(kind, numpy_type("floating")):
            return self._float
        if kind is datetime.datetime:
            return self._time
        if is_native and issubclass(kind, numpy_type("void")):  # of which the objects in it would make the text
            return lambda value: self._other(value.item())
        if id(kind) in self._plain or is_native and issubclass(kind, numpy_type("generic")):
            return self._str
        return self._other

    def _string(self, value):
        text = str.__getitem__(value, slice(self.longest + 1))
        return text if len(text) <= self.longest else text[: self.longest - 3] + "..."

    def _float(self, value):
        return "NaN" if value != value else cut(str(value), self.longest)

    def _time(self, value):
        return self._str(value) if value.tzinfo is None else self._other(value)

    def _str(self, value):
        try:
            return cut(str(value), self.longest)
        except Exception:  # that of a time zone
            return self._other(value)

    def _other(self, value):
        return preview(value, self.longest)


def _are_numbers(values):
    found = {id(type(value)) for value in values} - {id(type(None))}
    return bool(found) and found <= {id(int), id(float)}


def _types_of_pandas():
    pandas = sys.modules.get("pandas")
    names = vars(pandas) if type(pandas) is types.ModuleType else {}
    found = [names[name] for name in _OF_PANDAS if name in names]
    return {id(value if isinstance(value, type) else type(value)) for value in found}
