"""Lists and tuples as tables: of lists, of dictionaries, or of whatever else in one column."""

from ._objects import copy, is_instance
from ._table_cells import Cut

_LOOKED_AT = 1_000  # items, and keys of each, for the columns
_ROWS, _RECORDS, _ITEMS = "rows", "records", "items"


class _List:
    def __init__(self, value, base):
        self._value, self._base = value, base
        self.rows = base.__len__(value)
        self._names, self._kind = _columns(base.__getitem__(value, slice(_LOOKED_AT)))
        self.columns = len(self._names)

    def cut(self, begin, end, width, longest):
        cut = Cut(longest)
        items = self._base.__getitem__(self._value, slice(begin, end))
        if self._kind == _RECORDS:
            items = [_record(item) or {} for item in items]
        for at, name in enumerate(self._names[:width]):
            cut.add(cut.text(name), None, [self._cell(item, name, at) for item in items])
        cut.levels, cut.index = [""], [[str(row)] for row in range(begin, begin + len(items))]
        return cut

    def _cell(self, item, name, at):
        if self._kind == _RECORDS:
            return item.get(name, "")
        if self._kind == _ROWS:
            base = _sequence(item)
            return base.__getitem__(item, at) if base and at < base.__len__(item) else ""
        return item


def open_list(value):
    base = _sequence(value)
    return _List(value, base) if base else None


def _columns(items):
    """The names of the columns, and what the items are."""
    if items and all(map(_sequence, items)):
        return [str(at) for at in range(max(_sequence(item).__len__(item) for item in items))], _ROWS
    records = [_record(item) for item in items]
    if records and None not in records:
        return list(dict.fromkeys(key for record in records for key in record)), _RECORDS
    return [""], _ITEMS


def _sequence(value):
    return next((base for base in (list, tuple) if is_instance(value, base)), None)


def _record(value):
    """A dictionary whose keys are strings."""
    if not is_instance(value, dict):
        return None
    items = copy(lambda: dict.items(value), _LOOKED_AT)
    return dict(items) if all(type(key) is str for key, _ in items) else None
