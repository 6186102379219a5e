"""Shows values to clients as MIME bundles, and as text to those that show nothing else."""

import builtins
import os
import sys

import _numora_host as _host

from . import _guest
from ._bundle import bundle, complain, displays_itself, ignore, plain, representations

_TEXT_LIMIT = 1_000_000  # characters of text/plain in an event

__all__ = ["bundle", "clear_output", "display", "show_result", "update"]


class Handle:
    """Something shown that can be replaced."""

    def __init__(self, display_id):
        self.display_id = display_id

    def display(self, value, *, metadata=None, raw=False):
        """Shows a value with this id once more."""
        _show("display", value, self.display_id, metadata, raw)

    def update(self, value, *, metadata=None, raw=False):
        """Replaces what is shown with this id."""
        _show("update", value, self.display_id, metadata, raw)

    def __repr__(self):
        return "<display %s>" % self.display_id


def display(values, display_id, metadata, raw, clear):
    if clear:
        clear_output(wait=True)
    handle = None
    if display_id is not None:
        handle = Handle(os.urandom(16).hex() if display_id is True else _checked_id(display_id))
    for value in values:
        _show("display", value, handle and handle.display_id, metadata, raw)
    if handle and not values:
        publish("display", {}, metadata, handle.display_id)  # to be replaced
    return handle


def update(value, display_id, metadata, raw):
    _show("update", value, _checked_id(display_id), metadata, raw)


def clear_output(wait):
    if _host.hears("clear"):
        _host.raise_event("clear", {"wait": bool(wait)})
        if _host.has_capability("display"):
            return
    if wait:
        _host.home()
    else:
        _host.clc()


def show_result(value):
    """Shows the value of an expression where somebody listens to displays, and keeps it as `_`."""
    if not _host.has_capability("display"):
        sys.__displayhook__(value)
        try:  # on behalf of others, of whom this client is to see nothing
            _raise("result", *representations(value, ignore), complain=ignore)
        except BaseException as error:
            ignore(error)
        return
    if not displays_itself(value):
        _raise("result", *representations(value, complain))
    builtins._ = value
    guest = _guest.of_client()
    if guest:
        guest.keep_result(value)


def _show(kind, value, display_id, metadata, raw):
    if metadata is not None and not isinstance(metadata, dict):
        raise TypeError("metadata must be a dictionary, not %s" % type(metadata).__name__)
    if not raw and displays_itself(value):
        return
    is_heard = _host.hears("display")
    if not is_heard and not raw:
        print(repr(value))
        return
    data, own = (plain(value), {}) if raw else representations(value, complain)
    if not data and not raw:
        return  # the value has displayed itself
    guest = _guest.of_client()
    if guest:  # which may be capturing
        transient = {} if display_id is None else {"display_id": display_id}
        guest.shell.display_pub.publish(data, {**own, **(metadata or {})}, transient=transient, update=kind == "update")
    else:
        publish(kind, data, {**own, **(metadata or {})}, display_id)


def publish(kind, data, metadata, display_id):
    """Shows data by type."""
    data, is_heard = plain(data), _host.hears("display")
    if data and not (is_heard and _host.has_capability("display")):
        print(data.get("text/plain", ""))
    if is_heard:
        _raise(kind, data, metadata or {}, display_id)


def _raise(kind, data, metadata, display_id=None, complain=complain):
    if not data and display_id is None:
        return  # the value has displayed itself
    if isinstance(data.get("text/plain"), str):
        data["text/plain"] = _cut(data["text/plain"])
    transient = {} if display_id is None else {"display_id": display_id}
    others = {"kind": kind, "metadata": metadata, "transient": transient}
    try:
        _host.raise_display(data, others)
    except (TypeError, ValueError, RecursionError) as error:
        # One of them has no JSON form, or is too large.
        error.add_note("Of %s only the text is shown." % ", ".join(map(str, data)))
        complain(error)
        _host.raise_display({"text/plain": _cut(str(data.get("text/plain", "")))}, {**others, "metadata": {}})


def _cut(text):
    half = _TEXT_LIMIT // 2
    if len(text) <= 2 * half:
        return text
    return "%s\n[... %d characters ...]\n%s" % (text[:half], len(text) - 2 * half, text[-half:])


def _checked_id(display_id):
    if not isinstance(display_id, str) or not display_id:
        raise TypeError("display_id must be a string that is not empty, or True for a new one")
    if len(display_id) > 200:
        raise ValueError("display_id must have at most 200 characters")
    return display_id
