"""Completes the names of files, in strings and in lines that are commands."""

import os
import re
from itertools import islice

from ._scanner import Scanner

_ENTRIES, _MATCHES = 20_000, 500  # of a folder: that are looked at; that are shown
_LONGEST = 1_000  # characters of a path
# Lines that take files: of the shell, and magics; the rest of the line of %cd is one name.
_COMMAND = re.compile(
    r"[ \t]*(?:\w[\w, ]*=[ \t]*)?(?:!!?|%%?(?:(cd)|run|load|ls|cat|less|more|pycat|edit|save|writefile|file|sx|system|mkdir|rmdir|rm"
    r"|mv|cp|pushd)\b(?=[ \t]))[ \t]*")  # fmt: skip
_SHELL_CELL = re.compile(r"\s*%%(?:bash|sh|!)[^\n]*\n")
_WORD = re.compile(r"""(?:[^\s\\'"`=<>|;&()]|\\.)*\Z""")
_SPECIAL = re.compile(r"""[\s\\'"`$&*?<>|;()\[\]{}!#]""")


def in_command(text):
    """Where the last part of a path begins in a line that is a command, and the names it may become; else None."""
    begin = text.rfind("\n") + 1
    command = _COMMAND.match(text, begin)
    if _SHELL_CELL.match(text):
        typed = text[begin:]
    elif command and not _is_open(text[:begin]):
        typed = text[command.end() :]
        if command[1]:
            return _found(len(text), typed.lstrip("'\""), None, True)
    else:
        return None
    quote = Scanner(typed).inside
    if quote in ("'", '"'):
        return in_string(text, typed.rpartition(quote)[2], quote)
    return _found(len(text), _WORD.search(typed[-_LONGEST:])[0], _SPECIAL)


def in_string(text, typed, quote):
    """The same for a string in quotes, or a raw one where there are no quotes, that begins with `typed`."""
    return _found(len(text), typed, re.compile(r"[\\%s]" % quote) if quote else None)


def _is_open(text):
    scanner = Scanner(text)
    return scanner.brackets or scanner.inside


def _found(end, typed, special, only_folders=False):
    """`special` matches the characters that have a backslash before them there."""
    typed_folder, slash, last = typed.rpartition("/")
    folder = (re.sub(r"\\(.)", r"\1", typed_folder) if special else typed_folder) + slash
    matches = {}
    try:
        with os.scandir(os.path.expanduser(folder) or ".") as entries:
            for entry in islice(entries, _ENTRIES):
                name = special.sub(r"\\\g<0>", entry.name) if special else entry.name
                if not name.startswith(last) or (name[0] == "." and last[:1] != ".") or not name.isprintable():
                    continue
                is_folder = os.path.isdir(entry.path)
                if is_folder or not only_folders:
                    matches[name + "/" * is_folder] = 0
                if len(matches) == _MATCHES:
                    break
    except (OSError, ValueError):  # there is no such folder
        pass
    return end - len(last), matches
