"""What may stand after Python code: names, attributes, keys, arguments."""

import builtins
import keyword
import re
import types

from . import _user
from ._inspection import keyword_names
from ._labels import frame_kind, keys, labels
from ._module_names import imported_names
from ._objects import NOTHING, attribute, attribute_names, class_levels, copy, find, is_instance, own_vars
from ._offers import offered
from ._values import value_before

_LIMIT = 200  # labels and keys that are offered among other names
_DEFINITION = re.compile(r"\b(?:def|class)\s+\w+\s*\Z")
_PLACE = re.compile(r"\.\s*(?:loc|at)\Z")


def keys_after(before, scanner):
    """The keys that a string after `before` may be; None where it is none."""
    if not scanner.brackets or before[scanner.brackets[-1]] != "[":
        return None
    holder, first = before[: scanner.brackets[-1]].rstrip(), before[scanner.brackets[-1] + 1 :]
    if not first:
        value = value_before(holder, scanner)
        if value is not NOTHING:
            return keys(value)
    if first[-1:] in ("", ",") and holder.endswith("["):  # table[["a", "b"]]
        value = value_before(holder[:-1], scanner)
    elif first.endswith(",") and (place := _PLACE.search(holder)):  # table.loc[:, "a"]
        value = value_before(holder[: place.start()], scanner)
    else:
        return None
    return keys(value) if frame_kind(value) == "DataFrame" else None


def names_after(before, typed, scanner):
    """The names that may follow `before`, each with its rank, and a function that gives their values."""
    found = imported_names(before[scanner.statement :], typed)
    if found is not None:
        return (dict.fromkeys(found, 0),)
    stripped = before.rstrip()
    if stripped.endswith("."):
        value = value_before(stripped[:-1], scanner)
        if value is NOTHING:
            return ({},)
        return dict.fromkeys(_attributes(value, typed), 0), lambda name: attribute(value, name)[0]
    names = dict.fromkeys([*keyword.kwlist, *keyword.softkwlist, *copy(vars(builtins).__iter__)], 1)
    variables = copy(_user.variables.__iter__)
    names.update((name, name in _user.hidden) for name in variables if type(name) is str and name.isidentifier())
    names.update(dict.fromkeys(_arguments(stripped, scanner), -1))
    if stripped.endswith("[") and not typed:
        found = keys_after(stripped, scanner) or ()
        names.update(dict.fromkeys(map(repr, found[:_LIMIT]), -1))
    return names, lambda name: find((_user.variables, vars(builtins)), name)


def _attributes(value, typed):
    if frame_kind(value):
        offers = [label for label in labels(value) if label.startswith(typed)][:_LIMIT]
    elif is_instance(value, types.ModuleType):
        offers = offered(own_vars(value).get("__dir__"))
    else:
        offers = offered(find(class_levels(type(value)), "__dir__"), value)
    return attribute_names(value).union(name for name in offers if name.isidentifier())


def _arguments(before, scanner):
    """What an argument may begin with after `before`: the names that are not there yet, each with its equals sign."""
    call = scanner.brackets[-1] if scanner.brackets else None
    if call is None or before[-1] not in "(," or before[call] != "(" or _DEFINITION.search(before[:call][-500:]):
        return []
    value = value_before(before[:call], scanner)
    given = set(re.findall(r"\b(\w+)\s*=(?!=)", before[call:]))
    return [] if value is NOTHING else [name + "=" for name in keyword_names(value) if name not in given]
