"""Data frames and series of pandas as tables. pandas cuts the rows out; its options for display do not matter."""

from ._objects import is_instance, pandas_type
from ._table_cells import Cut

_LEVELS = 20  # of labels


class _Frame:
    def __init__(self, value, is_series):
        self._value, self._is_series = value, is_series
        self.rows = len(value.index)
        self.columns = 1 if is_series else len(value.columns)

    def cut(self, begin, end, width, longest):
        cut = Cut(longest)
        part = self._value.iloc[begin:end] if self._is_series else self._value.iloc[begin:end, :width]
        if self._is_series:
            cut.add("" if part.name is None else _label(cut, part.name), part.dtype, list(part.array))
        else:
            for at, name in enumerate(part.columns):
                column = part.iloc[:, at]
                cut.add(_label(cut, name), column.dtype, list(column.array))
        labels = part.index
        levels = range(min(labels.nlevels, _LEVELS))
        cut.levels = ["" if labels.names[at] is None else _label(cut, labels.names[at]) for at in levels]
        texts = [[cut.text(value) for value in labels.get_level_values(at)] for at in levels]
        cut.index = list(zip(*texts))
        return cut


def is_frame(value):
    return is_instance(value, (pandas_type("DataFrame"), pandas_type("Series")))


def measures(value):
    """The shape and the bytes of the elements of a data frame or series of pandas itself; None for anything else."""
    kind = type(value)
    if kind is not pandas_type("DataFrame") and kind is not pandas_type("Series"):  # a metaclass may define ==
        return None
    try:
        return list(value.shape), sum(block.values.nbytes for block in value._mgr.blocks)
    except Exception:  # it is being changed, or pandas has other ways now
        return None


def open_frame(value):
    return _Frame(value, is_instance(value, pandas_type("Series"))) if is_frame(value) else None


def _label(cut, name):
    return " / ".join(map(cut.text, name)) if type(name) is tuple else cut.text(name)
