"""What the program calls: it starts and ends Python code's connection to the window, and asks what code made of it."""

import builtins
import os
import sys

import _numora_host as _host

from . import _user  # noqa: F401: it takes the variables before any code can change sys.modules
from ._end import end
from ._errors import report, set_last_error
from ._history import remember
from ._libraries import Preparer, set_window
from ._processes import after_fork_in_child, end_forked_child, system
from ._prompts import ask, ask_for_password, open_debugger
from ._rich import display
from ._streams import Input, Output
from ._threads import attribute_threads

__all__ = [
    "announce_workspace",
    "begin_cell",
    "end",
    "end_cell",
    "end_forked_child",
    "plain_cell",
    "remember",
    "report",
    "restore_interrupts",
    "run_coroutine",
    "run_in_loop",
    "set_last_error",
    "set_window",
    "start",
    "trace_to",
]


def start():
    """Connects this interpreter to the program around it."""
    import getpass
    import signal

    sys.stdout = sys.__stdout__ = Output("<stdout>", 1, _host.write_out)
    sys.stderr = sys.__stderr__ = Output("<stderr>", 2, _host.write_err)
    sys.stdin = sys.__stdin__ = Input()
    sys.breakpointhook = open_debugger
    sys.displayhook = _host.show_result
    builtins.input, builtins.display = ask, display
    if hasattr(builtins, "exit"):
        from ._exit import Exit

        builtins.exit, builtins.quit = (Exit(own.name, own.eof) for own in (builtins.exit, builtins.quit))
    signal.signal(signal.SIGRTMIN, _host.run_requests)
    sys.unraisablehook = _host.unraisable
    sys.ps1, sys.ps2 = ">>> ", "... "
    sys.modules["readline"] = None  # line editing belongs to the client, and its library to the program
    sys.meta_path.insert(0, Preparer)
    getpass.getpass = ask_for_password
    os.system = system
    attribute_threads()
    os.register_at_fork(after_in_child=after_fork_in_child)
    _add_virtual_environment()


def _add_virtual_environment():
    root = os.environ.get("VIRTUAL_ENV")
    if not root or sys.prefix != sys.base_prefix:  # the interpreter is in one already
        return
    packages = os.path.join(root, "lib", "python%d.%d" % sys.version_info[:2], "site-packages")
    if not os.path.isdir(packages):
        _host.warn("The virtual environment %s has no packages for this version of Python." % root)
        return
    import site

    before = len(sys.path)
    site.addsitedir(packages)
    # Before the packages of the system, after the standard library.
    added, rest = sys.path[before:], sys.path[:before]
    at = next((i for i, p in enumerate(rest) if p.endswith(("site-packages", "dist-packages"))), len(rest))
    sys.path[:] = rest[:at] + added + rest[at:]


def trace_to(descriptor):
    """Has all threads' traces written there when the process crashes, and whenever SIGRTMIN+1 comes."""
    import faulthandler
    import signal

    faulthandler.enable(descriptor)
    faulthandler.register(signal.SIGRTMIN + 1, descriptor)


def restore_interrupts():
    """Undoes what code did to the handler of interrupts, beside setting one of its own."""
    import signal

    if signal.getsignal(signal.SIGINT) in (signal.SIG_DFL, signal.SIG_IGN, None):
        signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGRTMIN, _host.run_requests)


# --- modules that are loaded when they are first used ----------------------------------------------------------------


def announce_workspace():
    """Tells clients which variables the last evaluation has changed."""
    from ._changes import announce_workspace

    announce_workspace()


def begin_cell(code):
    """Before a cell of a notebook runs; gives the name of its file."""
    from ._cells import begin

    return begin(code)


def plain_cell(code, error):
    """The Python code that a cell stands for whose own code is none, as an error says, or may be none; or None."""
    from ._cells import plain

    return plain(code, error)


def end_cell(is_error):
    """After a cell has run, and its error was shown."""
    from . import _errors
    from ._cells import end

    error, _errors.of_cell = _errors.of_cell, None
    end(error if is_error else None)


def run_coroutine(coroutine):
    """Runs the coroutine that code with an `await` outside of functions is."""
    from ._loop import run

    run(coroutine)


def run_in_loop(statements, expression, workspace):
    """Runs compiled code of which a part awaits outside of functions."""
    from ._loop import run, run_in_turn

    run(run_in_turn((statements, expression), workspace))
