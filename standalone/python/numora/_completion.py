"""Completes the word before a cursor."""

import builtins
import keyword
import re

from . import _user
from ._module_names import imported_names
from ._objects import NOTHING, attribute, attribute_names, copy, find, is_instance, resolve
from ._scanner import Scanner, parse

MATCH_LIMIT = 500
CODE_LIMIT = 65_536  # characters before the cursor that are looked at
_KEY_LIMIT = 100_000  # keys of a dictionary that are looked at


def complete(code, cursor):
    code = code if type(code) is str else ""
    end = _index(code, cursor)
    try:
        start, matches = matches_at_end(code[:end])
    except Exception:  # an editor that asks at every key is served better by no match than by an error
        start, matches = end, []
    return {"matches": matches[:MATCH_LIMIT], "start": _units(code[:start]), "end": _units(code[:end])}


def _units(text):
    """Length in UTF-16 code units."""
    return len(text) if text.isascii() else len(text.encode("utf-16-le", "surrogatepass")) // 2


def _index(code, units):
    """The index of a position in UTF-16 code units; of a pair's first half if it is within the pair."""
    try:
        units = max(0, int(units))
    except (TypeError, ValueError, OverflowError):
        return len(code)
    if code.isascii():
        return min(units, len(code))
    before = code.encode("utf-16-le", "surrogatepass")[: 2 * units].decode("utf-16-le", "surrogatepass")
    return len(before) if code.startswith(before) else len(before) - 1


def matches_at_end(code):
    """Where the word at the end of `code` begins, and what it may become."""
    return words_at_end(code)[:2]


def words_at_end(code):
    """The same, and a function that gives the value of such a word, or NOTHING."""
    skipped = max(0, len(code) - CODE_LIMIT)
    skipped = max(skipped, code.find("\n", skipped) + 1) if skipped else 0
    text = code[skipped:]
    scanner = Scanner(text)
    if scanner.inside:
        (start, names), value_of = _keys(text, scanner), _no_value
    else:
        start = len(text) - len(re.search(r"\w*\Z", text[-500:])[0])
        is_number = text[start:][:1].isdigit()
        names, value_of = ({}, _no_value) if is_number else _names(text[:start], text[start:], scanner)
    typed = text[start:]
    matches = [name for name in names if name.startswith(typed)]
    matches.sort(key=lambda name: (name[:1] == "_", name[:2] == "__", names[name], name.casefold(), name))
    return skipped + start, matches, value_of


def _no_value(_):
    return NOTHING


def _names(before, typed, scanner):
    """The names that may follow `before`, each with its rank, and a function that gives their values."""
    found = imported_names(before[scanner.statement :], typed)
    if found is not None:
        return dict.fromkeys(found, 0), _no_value
    stripped = before.rstrip()
    if stripped.endswith("."):
        value = _value_before(stripped[:-1].rstrip(), scanner)
        if value is NOTHING:
            return {}, _no_value
        return dict.fromkeys(attribute_names(value), 0), lambda name: attribute(value, name)[0]
    names = dict.fromkeys([*keyword.kwlist, *keyword.softkwlist, *copy(vars(builtins).__iter__)], 1)
    variables = copy(_user.variables.__iter__)
    names.update((name, name in _user.hidden) for name in variables if type(name) is str and name.isidentifier())
    return names, lambda name: find((_user.variables, vars(builtins)), name)


CHAIN = re.compile(r"(?<![\w.])[^\W\d]\w*(?:\s*\.\s*[^\W\d]\w*)*\Z")
_DISPLAYS = {
    "List": list, "ListComp": list, "Dict": dict, "DictComp": dict,
    "Set": set, "SetComp": set, "Tuple": tuple, "JoinedStr": str,
}  # fmt: skip


def _value_before(text, scanner):
    """The value of the dotted name or the literal that `text` ends with."""
    chain = CHAIN.search(text, max(0, len(text) - 1000))
    if chain:
        if text[: chain.start()].rstrip().endswith("."):
            return NOTHING  # an attribute of a call, of an index, ...
        names = [name.strip() for name in chain[0].split(".")]
        value, is_value = resolve(names, (_user.variables, vars(builtins)))
        return value if is_value else NOTHING
    begin = scanner.begins.get(len(text))
    if begin is None or len(text) - begin > 10_000:
        return NOTHING
    word = re.search(r"[\w\])}'\"]*\Z", text[max(0, begin - 100) : begin].rstrip())[0]
    if word and not keyword.iskeyword(word):
        return NOTHING  # a call or an index
    tree = parse(text[begin:], "eval").body
    if type(tree).__name__ == "Constant":
        return tree.value
    kind = _DISPLAYS.get(type(tree).__name__)
    return kind() if kind else NOTHING


def _keys(text, scanner):
    """In `name["...` where the key begins, and the keys of the dictionary."""
    start = scanner.at + len(scanner.inside)
    before = text[: scanner.at].rstrip()
    if scanner.inside not in ("'", '"') or not before.endswith("["):
        return len(text), {}
    value = _value_before(before[:-1].rstrip(), scanner)
    if not is_instance(value, dict):
        return len(text), {}
    keys = [key for key in copy(lambda: dict.__iter__(value), _KEY_LIMIT) if type(key) is str and key.isprintable()]
    quote = scanner.inside
    return start, {key.replace("\\", "\\\\").replace(quote, "\\" + quote): 0 for key in keys}
