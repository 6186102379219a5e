"""Tells whether code can be run or more lines are to come."""

from ._scanner import Scanner, parse

_BLOCKS = ("cases", "body", "handlers", "orelse", "finalbody")
_CHECK_LIMIT = 1_000_000  # characters; nobody types more, and it would stop the running code for long
_LAST_OF_BLOCK = {"Return", "Raise", "Pass", "Break", "Continue"}


def is_complete(code):
    if len(code) > _CHECK_LIMIT:
        return {"status": "complete", "indent": ""}
    code = code.replace("\r\n", "\n").replace("\r", "\n")
    try:
        tree = parse(code, "exec")
    except (SyntaxError, ValueError, MemoryError, RecursionError) as error:
        if type(error) is SyntaxError and error.msg == "incomplete input":
            return {"status": "incomplete", "indent": _next_indent(code)}
        return {"status": "invalid", "indent": ""}
    lines = code.split("\n")
    indent = _open_indent(tree, lines) if lines[-1].strip() else None
    return {"status": "complete" if indent is None else "incomplete", "indent": indent or ""}


def _indent(line):
    return line[: len(line) - len(line.lstrip(" \t"))]


def _next_indent(code):
    """The indentation of the line that follows code which is not complete."""
    code = code.rstrip()
    scanner = Scanner(code)
    if scanner.inside.endswith(("'''", '"""')):
        return ""  # it would become part of the string
    text = code[: scanner.at].rstrip() if scanner.inside == "#" else code
    if scanner.brackets or scanner.statement >= len(text):
        indent = _indent(text.rpartition("\n")[2])
    else:
        indent = _indent(text[scanner.statement :])
    deeper = "\t" if "\t" in indent else "    "
    return indent + (deeper if text.endswith((":", "(", "[", "{")) else "")


def _open_indent(tree, lines):
    """The indentation of the block that the last line is in and the next may be, too; None outside of blocks."""
    node, outer, inner = tree, "", ""
    while parts := [part for field in _BLOCKS for part in getattr(node, field, None) or ()]:
        node = parts[-1]
        placed = node if hasattr(node, "lineno") else node.pattern
        outer, inner = inner, _indent(lines[placed.lineno - 1])
    if not inner:
        return None
    return outer if type(node).__name__ in _LAST_OF_BLOCK else inner
