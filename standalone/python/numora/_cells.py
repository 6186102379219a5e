"""Cells of notebooks: code whose client has the capability "notebook"."""

import re
import sys

import _numora_host as _host

from . import _guest, _user

figures = None  # the module, once it is loaded, which code may take out of sys.modules
count = 0
_file = "<cell 0>"
_has_failed = False

# Lines that only the guest understands, and what makes code look as if it had some.
_MAGIC = re.compile(
    r"^[ \t]*[%!?]|\A[,;/]|=\s*[%!]|\?[ \t]*$|^[ \t]*(?:>>>|In \[)|\A[ \t]+\S"
    r"|\A(?:cd|conda|ls|pip|pwd)(?:[ \t]+[^=\s]|[ \t]*$)", re.MULTILINE)
# What editors send to every Python kernel at its start.
_SIMPLE = re.compile(
    r"^%(?:matplotlib[ \t]+inline|config[ \t]+Completer\.\S*.*|(cd)(?:[ \t]+([^-${\n][^${\n]*?))?)[ \t]*$", re.MULTILINE)
_AWAIT_OUTSIDE, _TREE_ONLY, _IS_COROUTINE = 0x2000, 0x400, 0x80  # flags of compile(), and of code


def begin(code):
    """Before a cell runs; gives the name of its file."""
    global count, _file
    number = re.fullmatch(r"(\d{1,9})(\.\d+)?", _host.cell_number())  # with a point, the cell does not use it up
    count = int(number[1]) if number else count + 1
    _file = "<cell %s>" % (number[0] if number else count)
    for prepare in (set_figures_aside, _lend_loop, lambda: _begin_in_guest(code)):
        try:
            prepare()
        except Exception as error:
            complain(error)
    return _file


def _lend_loop():
    if sys.modules.get("asyncio"):
        from ._loop import usable_loop

        usable_loop()  # asyncio.run() has left none


def _begin_in_guest(code):
    guest = _guest.made()
    if guest is None and ("get_ipython" in code or sys.modules.get("IPython")):
        guest = _guest_if_it_works()
    if guest:
        guest.before(count, code)


def _guest_if_it_works():
    """The guest that code may expect; or None, which is said once."""
    global _has_failed
    if _has_failed or not _guest.is_available():
        return None
    try:
        return _guest.load()
    except Exception as error:
        _has_failed = True
        complain(error)


def set_figures_aside():
    """Has those figures left alone that are open now, which are others'."""
    if figures:
        figures.begin_cell()


def plain(code, error):
    """The Python code that a cell stands for whose own code is none, as an error says, or may be none; or None."""
    is_one_line = "\n" not in code.strip()  # which may be a magic without its %
    if error is None and (not is_one_line or code.split()[0] in _user.variables):
        return None
    guest = _guest.made()
    if not (_MAGIC.search(code) or guest and is_one_line):
        return None
    if guest is None:
        simple = _SIMPLE.sub(_simple_call, code)
        if simple != code and _is_python(simple):
            return simple
        if not _guest.is_available():
            if error:
                error.add_note("Magics, ! and ? need IPython: install python3-ipython.")
            return None
        guest = _guest.load()
        guest.before(count, code)
    try:
        found = guest.shell.transform_cell(code)
    except SyntaxError:
        return None
    return found if found.rstrip() != code.rstrip() else None


def end(error=None):
    """After a cell has run, and its error was shown."""
    guest = _guest.made()
    for finish in (figures and figures.end_cell, guest and (lambda: guest.after(error))):
        try:
            if finish:
                finish()
        except BaseException as problem:
            complain(problem)


def show_figures():
    """Shows the figures that code has left open so far."""
    if figures:
        figures.show_left()


def show_figures_inline():
    """Has figures shown to clients, also where code has chosen another backend."""
    if "matplotlib" in sys.modules:
        sys.modules["matplotlib"].use("module://numora._figures")


def complain(error):
    """Shows an error that does not end the code in which it arose."""
    from ._errors import report

    print(report(error)[3], end="", file=sys.stderr)


def show_caught(error):
    """Shows an error as if it ended the cell, which goes on."""
    from ._errors import report

    if not _host.hears("error"):
        return complain(error)
    kind, name, message, text, _, suggestion, *_ = report(error)
    if kind == "exit":
        return
    lines = text.splitlines() + (["Did you mean: '%s'?" % suggestion] if suggestion else [])
    _host.raise_event("error", {"name": name, "value": message, "traceback": lines, "caught": True})


def ask_exit():
    """Asks the notebook to end its kernel."""
    _host.raise_event("payload", {"payload": {"source": "ask_exit", "keepkernel": False}})


def run(code):
    """Runs code as a cell does, and shows the value of an expression at its end."""
    import ast

    tree = compile(code, _file, "exec", _TREE_ONLY, dont_inherit=True)
    last = tree.body.pop() if tree.body and isinstance(tree.body[-1], ast.Expr) else None
    trees = [(tree, "exec"), *([(ast.Interactive([last]), "single")] if last else ())]
    codes = [compile(part, _file, mode, _AWAIT_OUTSIDE, dont_inherit=True) for part, mode in trees]
    if any(part.co_flags & _IS_COROUTINE for part in codes):
        from ._loop import run, run_in_turn

        return run(run_in_turn(codes, _user.variables))
    for part in codes:
        exec(part, _user.variables)


def _simple_call(line):
    if line[0].startswith("%matplotlib"):
        return "__import__('numora._cells', fromlist=['_']).show_figures_inline()"
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


def guest_is_imported():
    """Code has imported IPython: where it is a notebook's, it expects the guest."""
    import threading

    is_possible = threading.current_thread() is threading.main_thread() and not _guest.is_begun()
    if is_possible and _host.has_capability("notebook"):
        guest = _guest_if_it_works()
        if guest:
            guest.before(count, "")
