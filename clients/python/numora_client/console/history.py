"""The blocks that were entered, kept in a file from one session to the next."""

from __future__ import annotations

import contextlib
import os
import re
from typing import Iterable, Optional

from prompt_toolkit.history import History

_KEPT = 1000  # blocks
_SIZE = 1 << 20  # bytes of the file from which on it is cut to as many
_OLD_FORM = "_HiStOrY_V2_\n"


def default_file() -> Optional[str]:
    """Where the user's state is kept; None when that is not known."""
    state = os.environ.get("XDG_STATE_HOME", "")
    home = os.environ.get("HOME", "")
    if not os.path.isabs(state):
        if not os.path.isabs(home):
            return None
        state = os.path.join(home, ".local/state")
    return os.path.join(state, "numora/history")


class BlockHistory(History):
    """Each block is lines that begin with "+", after a blank line. Sessions that run at a time all add to the file.

    One that cannot be written is no reason to end a session.
    """

    def __init__(self, file: Optional[str]) -> None:
        super().__init__()
        self._file = file

    def load_history_strings(self) -> Iterable[str]:
        if self._file is None:
            return []
        try:
            with open(self._file, encoding="utf-8", errors="replace") as file:
                text = file.read()
        except OSError:
            return []
        blocks = _from_old_form(text) if text.startswith(_OLD_FORM) else _blocks(text)
        kept = blocks[-_KEPT:]
        if text.startswith(_OLD_FORM) or len(text) > _SIZE and len(blocks) > len(kept):
            self._replace("".join(map(_entry, kept)))
        return kept[::-1]

    def append_string(self, string: str) -> None:
        if string.strip() and string != next(iter(self._loaded_strings), None):
            super().append_string(string)

    def store_string(self, string: str) -> None:
        if self._file is None:
            return
        with contextlib.suppress(OSError):
            os.makedirs(os.path.dirname(self._file), exist_ok=True)
            _write(self._file, _entry(string), os.O_APPEND)

    def _replace(self, text: str) -> None:
        assert self._file is not None
        draft = f"{self._file}.{os.getpid()}"
        with contextlib.suppress(OSError):
            _write(draft, text, os.O_EXCL)
            os.replace(draft, self._file)


def _write(path: str, text: str, flag: int) -> None:
    """For the owner alone, and at once, so that what others add goes before or after it."""
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | flag, 0o600)
    try:
        os.write(descriptor, text.encode("utf-8", "replace"))
    finally:
        os.close(descriptor)


def _entry(block: str) -> str:
    return "\n" + "".join(f"+{line}\n" for line in block.split("\n"))


def _blocks(text: str) -> list[str]:
    parts = ("\n" + text).split("\n\n")
    return ["\n".join(line[1:] for line in part.strip("\n").split("\n"))
            for part in parts if part.strip("\n").startswith("+")]


def _from_old_form(text: str) -> list[str]:
    """One line each, in which three octal digits after a backslash are a byte."""
    def byte(found: re.Match[bytes]) -> bytes:
        return bytes([int(found[1], 8) & 0xFF])

    return [re.sub(rb"\\([0-7]{3})", byte, line.encode()).decode("utf-8", "replace")
            for line in text.split("\n")[1:] if line.strip()]
