"""Completes the word before a cursor."""

import re

from ._choices import keys_after, names_after
from ._file_names import in_command, in_string
from ._objects import NOTHING
from ._scanner import Scanner

MATCH_LIMIT = 500
CODE_LIMIT = 65_536  # characters before the cursor that are looked at
_FORMAT = re.compile(r"(?:!(?!=)|:)[^:!\[\](){}'\"]*\Z")  # after an expression in an f-string


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
    start, names, *value_of = in_command(text) or _choice(text)
    typed = text[start:]
    matches = [name for name in names if name.startswith(typed)]
    matches.sort(key=lambda name: (name[:1] == "_", name[:2] == "__", names[name], name.casefold(), name))
    return skipped + start, matches, *(value_of or [lambda _: NOTHING])


def _choice(text):
    """Where the word at the end of Python code begins, the words that may stand there, each with its rank, and, where they
    have some, a function that gives their values."""
    scanner = Scanner(text)
    if scanner.inside == "#":
        return len(text), {}
    if scanner.inside:
        return _in_string(text, scanner)
    start = len(text) - len(re.search(r"\w*\Z", text[-500:])[0])
    is_number = text[start:][:1].isdigit()
    return (start, {}) if is_number else (start, *names_after(text[:start], text[start:], scanner))


def _in_string(text, scanner):
    start = scanner.at + len(scanner.inside)
    quotes = scanner.inside.lstrip("rRbBuUfF")
    prefix = scanner.inside[: -len(quotes)].lower()
    if "f" in prefix:
        field = _field(text, start)
        if field is None:
            return len(text), {}
        begin, *choice = _choice(text[field:])
        return field + begin, *choice
    if len(quotes) == 3 or "b" in prefix:
        return len(text), {}
    found = None if prefix else keys_after(text[: scanner.at].rstrip(), scanner)
    if found is None:
        return in_string(text, text[start:], "" if "r" in prefix else quotes)
    typed = re.sub(r"\\(.)", r"\1", text[start:])
    found = [key for key in found if key.startswith(typed) and key.isprintable()][:MATCH_LIMIT]
    return start, {key.replace("\\", "\\\\").replace(quotes, "\\" + quotes): 0 for key in found}


def _field(text, start):
    """Where the expression begins that the end of an f-string is in; None outside of them, and in formats."""
    opened, passed = [], start
    for brace in re.finditer("[{}]", text[start:]):
        at = start + brace.start()
        if at < passed:
            continue
        if brace[0] == "}":
            del opened[-1:]
        elif not opened and text.startswith("{{", at):
            passed = at + 2
        else:
            opened.append(at + 1)
    return None if not opened or _FORMAT.search(text, opened[-1]) else opened[-1]
