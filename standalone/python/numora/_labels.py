"""The keys of what has some: of dictionaries, of pandas' tables by their labels, of records by their fields."""

from collections.abc import Mapping

from ._objects import Instance, array_attribute, class_levels, class_of, copy, find, is_instance, mro, numpy_type, pandas_type
from ._offers import offered

_LIMIT = 100_000  # that are looked at


def frame_kind(value):
    """The name of pandas' own class, to the letter, that a table is an instance of; None for anything else."""
    return next((name for name in ("DataFrame", "Series") if class_of(value) is pandas_type(name)), None)


def labels(table):
    """The texts among the labels of the columns of a data frame, or of the rows of a series."""
    if type(table) is Instance:
        return []
    try:
        index = table.columns if type(table) is pandas_type("DataFrame") else table.index
        if type(index) is pandas_type("MultiIndex"):
            index = index.levels[0]
        found = index[:_LIMIT].tolist() if type(index) is pandas_type("Index") else []
    except Exception:  # it is being changed
        return []
    return [label for label in found if type(label) is str]


def keys(value):
    """Those that are texts, among the first ones."""
    if frame_kind(value):
        return labels(value)
    if is_instance(value, numpy_type("ndarray")):
        return array_attribute(value, "dtype").names or ()
    offer = find(class_levels(type(value)), "_ipython_key_completions_")
    found = offered(offer, value)
    if is_instance(value, dict):
        found = found or copy(lambda: dict.__iter__(value), _LIMIT)
    elif any(base is Mapping for base in mro(type(value))):
        found = found or offered(find(class_levels(type(value)), "__iter__"), value)
    return [key for key in found if type(key) is str]
