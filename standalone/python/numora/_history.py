"""The evaluations that there were, within bounds."""

import collections

_EVALUATIONS_KEPT = 1_000
_TEXT_KEPT = 1 << 20  # characters of all of them

_evaluated = collections.deque()
_text_size = 0


def remember(number, code):
    """Adds an evaluation to the history."""
    global _text_size
    size = len(code)
    if size > _TEXT_KEPT:
        return  # it would take the place of all others
    _evaluated.append((number, code))
    _text_size += size  # with no call within the sum, since other evaluations may come in at calls
    while len(_evaluated) > _EVALUATIONS_KEPT or _text_size > _TEXT_KEPT:
        size = len(_evaluated.popleft()[1])
        _text_size -= size


def history(n=None):
    from ._objects import copy

    entries = copy(_evaluated.__iter__)
    count = len(entries) if n is None else max(0, int(n))
    return [{"number": number, "code": code} for number, code in entries[len(entries) - min(count, len(entries)) :]]
