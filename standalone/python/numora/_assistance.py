"""Completion, inspection and the like for notebooks."""

import keyword
import re
import types

from . import _commands, _completeness, _completion, _guest, _inspection
from ._cells import looks_like_magic
from ._objects import NOTHING, is_instance
from ._scanner import Scanner

_NAME = re.compile(r"[^\W\d]\w*(?:\s*\.\s*[^\W\d]\w*)*")
_CHAIN = re.compile(r"(?<![\w.])" + _NAME.pattern + r"\Z")
# Magics of every version of the guest, to be known before it is there.
_USUAL = {
    "cell": "bash capture file html HTML javascript latex markdown prun python python3 script sh svg SVG time timeit writefile".split(),
    "line": "cd config debug env history load load_ext lsmagic magic matplotlib page pdb pdoc pfile pinfo pip prun pwd quickref "
            "recall reload_ext rerun reset run save set_env store sx system time timeit unload_ext who who_ls whos xmode".split(),
}  # fmt: skip
_FUNCTIONS = (types.FunctionType, types.BuiltinFunctionType, types.MethodType, types.MethodDescriptorType,
              types.WrapperDescriptorType, types.MethodWrapperType, types.ClassMethodDescriptorType)  # fmt: skip
# Lines for a guest, or their parts, with what stands for them in Python.
_FOREIGN = ((re.compile(r"^([ \t]*)(?:[%!?]|.*\?[ \t]*$).*$", re.MULTILINE), r"\g<1>0"),
            (re.compile(r"(=[ \t]*)[%!].*$", re.MULTILINE), r"\g<1>0"))  # fmt: skip


def complete(code, cursor):
    end = max(0, min(cursor, len(code)))
    try:
        start, matches, value_of = _magics(code[:end]) or _completion.words_at_end(code[:end])
    except Exception:  # as for every other client
        start, matches, value_of = end, [], None
    matches = matches[: _completion.MATCH_LIMIT]
    kinds = [{"start": start, "end": end, "text": match, "type": _kind(match, value_of(match))} for match in matches]
    return {"matches": matches, "cursor_start": start, "cursor_end": end,
            "metadata": {"_jupyter_types_experimental": kinds} if kinds else {}}  # fmt: skip


def _magics(code):
    """The magics that a line may begin with: all that the guest has, else the usual ones."""
    typed = re.search(r"(?:^|\n)[ \t]*(%{1,2})(\w*)\Z", code)
    if not typed:
        return None
    guest = _guest.made()
    if guest:
        magics = guest.shell.magics_manager.magics
    else:
        magics = _USUAL if _guest.is_available() else {}
    kinds = (("%", "line"), ("%%", "cell"))[len(typed[1]) - 1 :]
    names = [mark + name for mark, kind in kinds for name in sorted(magics.get(kind, ())) if name.startswith(typed[2])]
    return typed.start(1), names, lambda _: NOTHING


def _kind(name, value):
    if name.endswith("="):
        return "param"
    if value is NOTHING:
        return "keyword" if keyword.iskeyword(name) else "<unknown>"
    for kind, classes in (("class", type), ("module", types.ModuleType), ("function", _FUNCTIONS), ("property", property)):
        if is_instance(value, classes):
            return kind
    return "instance"


def inspect(code, cursor, detail):
    for name in _names_at(code, max(0, min(cursor, len(code)))):
        found = _inspection.inspect(name)
        if found["found"]:
            return {"found": True, "data": {"text/plain": _description(found, detail)}, "metadata": {}}
    return {"found": False, "data": {}, "metadata": {}}


def _names_at(code, cursor):
    """The dotted name at a position, up to the part that is there, then the functions whose calls it is in."""
    line = code.rfind("\n", 0, cursor) + 1
    for found in _NAME.finditer(code, max(line, cursor - 1000)):
        if found.start() > cursor:
            break
        if cursor <= found.end():
            part = re.compile(r"\w*").match(code, cursor).end()
            yield "".join(code[found.start() : part].split()).rstrip(".")
    text = code[:cursor]
    for bracket in reversed(Scanner(text[-_completion.CODE_LIMIT :]).brackets):
        bracket += max(0, len(text) - _completion.CODE_LIMIT)
        called = _CHAIN.search(text[max(0, bracket - 1000) : bracket].rstrip())
        if text[bracket] == "(" and called:
            yield "".join(called[0].split())


def _description(found, detail):
    name = found["name"]
    source = _commands.source(name) if detail else ""
    file = found["source_file"]
    rows = [
        ("Signature", found["signature"] and name.rpartition(".")[2] + found["signature"], " "),
        ("Type", found["type"], " "),
        ("Value", None if found["signature"] else found["text"], " "),
        ("File", file and (file if found["line"] is None else "%s:%d" % (file, found["line"])), " "),
        ("Source", source.rstrip(), "\n"),
        ("Docstring", None if source else found["doc"], "\n"),
    ]
    return "\n".join("%s:%s%s" % (title, between, text) for title, text, between in rows if text)


def is_complete(code):
    """The guest is not asked: that takes the square of the lines, in the midst of the code that runs."""
    found = _completeness.is_complete(code)
    if found["status"] == "complete" or not looks_like_magic(code) or not _guest.is_available():
        return found
    if code.lstrip().startswith("%%"):  # ends with a blank line
        return {"status": "incomplete" if code.splitlines()[-1].strip() else "complete", "indent": ""}
    for foreign, python in _FOREIGN:
        code = foreign.sub(python, code)
    return _completeness.is_complete(code)
