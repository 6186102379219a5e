"""Arrays of NumPy as tables: of one or two dimensions, and structured ones."""

from ._objects import array_attribute, is_instance, numpy_type, own_vars
from ._table_cells import Cut


class _Array:
    def __init__(self, value):
        ndarray = numpy_type("ndarray")
        self._values = ndarray.view(value, ndarray)  # whatever its class makes of it
        mask = own_vars(value).get("_mask")
        self._mask = mask if type(mask) is ndarray and mask.shape == self._values.shape and mask.dtype == bool else None
        self._fields = self._values.dtype.names if self._values.ndim == 1 else None
        self.rows = self._values.shape[0]
        self.columns = self._values.shape[1] if self._values.ndim == 2 else len(self._fields or [""])

    def cut(self, begin, end, width, longest):
        cut = Cut(longest)
        part = self._values[begin:end]
        for at in range(width):
            if self._fields:
                column, name = part[self._fields[at]], self._fields[at]
            else:
                column, name = (part[:, at], str(at)) if part.ndim == 2 else (part, "")
            cut.add(name, column.dtype, list(column))
            if self._mask is not None:
                hidden = self._mask[begin:end].reshape(end - begin, -1)[:, at]
                cut.cells[-1] = ["--" if one else text for one, text in zip(hidden, cut.cells[-1])]
        cut.levels, cut.index = [""], [[str(row)] for row in range(begin, end)]
        return cut


def is_array(value):
    return is_instance(value, numpy_type("ndarray")) and len(array_attribute(value, "shape")) in (1, 2)


def open_array(value):
    return _Array(value) if is_array(value) else None
