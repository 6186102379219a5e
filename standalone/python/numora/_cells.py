"""Cells of notebooks: code whose client has the capability "notebook"."""

import re
import sys

count = 0

# Lines that only a guest understands, and what makes a line look like one.
_MAGIC = re.compile(r"^\s*[%!?,;/]|=\s*[%!]|\?[ \t]*$|^\s*(?:>>>|In \[)|\A[ \t]+\S|^(?:exit|quit)\s*$", re.MULTILINE)
# What editors send to every Python kernel at its start.
_SIMPLE = re.compile(r"^%(?:matplotlib[ \t]+inline|config[ \t]+Completer\.\S*.*|(cd)(?:[ \t]+(.*?))?)[ \t]*$", re.MULTILINE)
_AWAIT_OUTSIDE = 0x2000  # flag of compile()


def begin(code):
    """Before a cell runs; gives the name of its file."""
    global count
    count += 1
    return "<cell %d>" % count


def plain(code, error):
    """The Python code that a cell stands for whose own code is none, as an error says; or None."""
    if not _MAGIC.search(code):
        return None
    simple = _SIMPLE.sub(_simple_call, code)
    return simple if simple != code and _is_python(simple) else None


def end():
    """After a cell has run, and its error was shown."""
    try:
        if "numora._figures" in sys.modules:
            from ._figures import end_cell

            end_cell()
    except BaseException as error:
        complain(error)


def complain(error):
    """Shows an error that does not end the code in which it arose."""
    from ._errors import report

    print(report(error)[3], end="", file=sys.stderr)


def _simple_call(line):
    if line[1] is None:
        return "pass"
    return "__import__('numora._commands', fromlist=['_']).change_folder(%r)" % (line[2] or "").strip("\"'")


def _is_python(code):
    try:
        compile(code, "<cell>", "exec", _AWAIT_OUTSIDE, dont_inherit=True)
    except (SyntaxError, ValueError):
        return False
    return True


def looks_like_magic(code):
    return _MAGIC.search(code) is not None


def guest():
    """The shell of the guest, or None while there is none."""
    module = sys.modules.get("numora._ipython")
    return module and module.shell


def has_guest():
    """Whether the guest can be had."""
    from importlib.util import find_spec

    return sys.modules["IPython"] is not None if "IPython" in sys.modules else find_spec("IPython") is not None
