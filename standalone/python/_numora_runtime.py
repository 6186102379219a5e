"""What Python code meets of the program that embeds it: streams, prompts, error reports and the window's size."""

import codecs
import io
import os
import sys

import _numora_host as _host

# The prompts at which a line can be read, numbered as the host numbers them.
_DEBUG, _INPUT, _KEYBOARD = 1, 2, 3


class Output(io.TextIOBase):
    """Text stream into the command window. `write` is the native function itself, so print() runs no Python frame."""

    encoding = "utf-8"
    errors = "replace"
    newlines = None
    line_buffering = True
    mode = "w"

    def __init__(self, name, descriptor, write):
        self.name = name
        self.write = write
        self.buffer = OutputBytes(self)
        self._descriptor = descriptor

    def fileno(self):
        return self._descriptor  # captured too, so a child process may write there

    def writable(self):
        return True

    def reconfigure(self, **_):
        pass

    def close(self):
        pass


class OutputBytes(io.RawIOBase):
    """The bytes side of an Output, for code that writes UTF-8 itself."""

    def __init__(self, text):
        self.name = text.name
        self._text = text
        self._decoder = codecs.getincrementaldecoder("utf-8")("replace")

    def write(self, data):
        data = bytes(data)
        self._text.write(self._decoder.decode(data))
        return len(data)

    def fileno(self):
        return self._text.fileno()

    def writable(self):
        return True

    def close(self):
        pass


class Input(io.TextIOBase):
    """Text stream of what is typed at prompts, line by line."""

    encoding = "utf-8"
    errors = "strict"
    mode = "r"
    name = "<stdin>"

    def __init__(self):
        self._rest = ""

    def readable(self):
        return True

    def readline(self, size=-1):
        line = self._rest or _read_line(_requester(sys._getframe(1)))
        if size is None or size < 0:
            size = len(line)
        self._rest = line[size:]
        return line[:size]

    def read(self, size=-1):
        if size is not None and size >= 0:
            return self.readline(size)
        return "".join(iter(self.readline, ""))

    def close(self):
        pass


def _requester(frame):
    """Who asks for the line: a debugger, an interactive console of Python's own, or other code."""
    module = frame.f_globals.get("__name__")
    if module == "code":
        return _KEYBOARD
    bdb = sys.modules.get("bdb")
    if bdb and isinstance(frame.f_locals.get("self"), bdb.Bdb):
        return _DEBUG
    return _INPUT


def _read_line(requester):
    try:
        return _host.read_line(requester)
    except KeyboardInterrupt:
        if requester != _DEBUG:
            raise
    # The debugger would take a KeyboardInterrupt for itself and ask again.
    import bdb

    quit_debugging = bdb.BdbQuit()
    quit_debugging.is_interrupt = True
    raise quit_debugging


def _breakpoint(*args, **kwargs):
    if os.environ.get("PYTHONBREAKPOINT"):
        return sys.__breakpointhook__(*args, **kwargs)
    import pdb

    # Interrupts end the evaluation; they do not open the debugger again.
    pdb.Pdb(nosigint=True).set_trace(sys._getframe(1))


def _getpass(prompt="Password: ", stream=None):
    return input(prompt)


def _after_fork_in_child():
    # The window and its threads stayed in the parent, which captures what is written to the descriptors.
    sys.stdout = open(1, "w", closefd=False, buffering=1, errors="replace")
    sys.stderr = open(2, "w", closefd=False, buffering=1, errors="replace")
    sys.stdin = open(os.devnull)


# --- window size -----------------------------------------------------------------------------------------------------

_columns = 80


def set_window(columns, rows):
    """Makes shutil.get_terminal_size() and NumPy's line width follow the command window."""
    global _columns
    _columns = columns
    os.environ["COLUMNS"] = str(columns)
    os.environ["LINES"] = str(rows)
    _apply_numpy_width()


def _apply_numpy_width():
    numpy = sys.modules.get("numpy")
    if hasattr(numpy, "set_printoptions"):
        numpy.set_printoptions(linewidth=_columns)


class _NumpyImport:
    """Sets NumPy's line width when NumPy is first imported."""

    @classmethod
    def find_spec(cls, name, path=None, target=None):
        if name != "numpy":
            return None
        sys.meta_path.remove(cls)
        from importlib.machinery import PathFinder

        spec = PathFinder.find_spec(name)
        if spec is not None and spec.loader is not None:
            execute = spec.loader.exec_module

            def exec_module(module):
                execute(module)
                _apply_numpy_width()

            spec.loader.exec_module = exec_module
        return spec


# --- errors ----------------------------------------------------------------------------------------------------------


def report(error):
    """Describes the exception that ended an evaluation.

    Returns (kind, type name, message, text to show, [(file, function, line)], suggestion or None); kind is "exit" for an
    orderly end without an error, "interrupt" or "error".
    """
    name = type(error).__name__
    bdb = sys.modules.get("bdb")
    if bdb and isinstance(error, bdb.BdbQuit):
        if not getattr(error, "is_interrupt", False):
            return ("exit", name, "", "", [], None)
        return ("interrupt", "KeyboardInterrupt", "", "KeyboardInterrupt\n", [], None)
    if isinstance(error, SystemExit):
        if error.code is None or error.code == 0:
            return ("exit", name, "", "", [], None)
        text = "SystemExit: %s\n" % (error.code,)
        return ("error", name, str(error.code), text, [], None)

    sys.last_type, sys.last_value, sys.last_traceback = type(error), error, error.__traceback__
    import traceback

    described = traceback.TracebackException.from_exception(error, compact=True)
    _hide_own_frames(described)
    text = "".join(described.format())
    frames = [(f.filename, f.name, f.lineno or 0) for f in traceback.extract_tb(error.__traceback__)[-100:]]
    kind = "interrupt" if isinstance(error, KeyboardInterrupt) else "error"
    try:
        suggestion = _suggestion(error)
    except Exception:
        suggestion = None  # looking for one runs code of the object at fault
    return (kind, name, str(error), text, frames, suggestion)


def _hide_own_frames(described):
    """Takes this module out of the call stacks that are shown: the code at fault is the user's."""
    while described is not None:
        described.stack[:] = [f for f in described.stack if f.filename != __file__]
        for part in described.exceptions or ():
            _hide_own_frames(part)
        described = described.__cause__ or described.__context__


def _suggestion(error):
    """The name that may have been meant where the error is about an unknown name, or None."""
    if isinstance(error, ModuleNotFoundError):
        return _module_suggestion(error.name)
    if isinstance(error, ImportError):
        import re

        match = re.match(r"cannot import name '(\w+)'", str(error))
        module = sys.modules.get(error.name)
        return _closest(match[1], dir(module)) if match and module else None
    if isinstance(error, AttributeError) and error.name is not None:
        return _closest(error.name, dir(error.obj))
    if isinstance(error, NameError) and error.name is not None:
        trace = error.__traceback__
        while trace.tb_next:
            trace = trace.tb_next
        frame = trace.tb_frame
        return _closest(error.name, {**frame.f_builtins, **frame.f_globals, **frame.f_locals})
    return None


def _module_suggestion(name):
    import pkgutil

    parent, _, last = (name or "").rpartition(".")
    if parent:
        names = [m.name for m in pkgutil.iter_modules(getattr(sys.modules.get(parent), "__path__", []))]
    else:
        names = {*sys.stdlib_module_names, *(m.name for m in pkgutil.iter_modules())}
    found = _closest(last, names)
    return found and (parent + "." + found if parent else found)


def _closest(name, candidates):
    import difflib

    others = [c for c in candidates if isinstance(c, str) and c != name]
    return next(iter(difflib.get_close_matches(name, others, n=1, cutoff=0.7)), None)


# --- start -----------------------------------------------------------------------------------------------------------


def start():
    """Connects this interpreter to the program around it."""
    import getpass

    sys.stdout = sys.__stdout__ = Output("<stdout>", 1, _host.write_out)
    sys.stderr = sys.__stderr__ = Output("<stderr>", 2, _host.write_err)
    sys.stdin = sys.__stdin__ = Input()
    sys.breakpointhook = _breakpoint
    sys.ps1, sys.ps2 = ">>> ", "... "
    sys.modules["readline"] = None  # line editing belongs to the client, and its library to the program
    sys.meta_path.insert(0, _NumpyImport)
    getpass.getpass = _getpass
    os.register_at_fork(after_in_child=_after_fork_in_child)
    _add_virtual_environment()


def _add_virtual_environment():
    root = os.environ.get("VIRTUAL_ENV")
    if not root:
        return
    packages = os.path.join(root, "lib", "python%d.%d" % sys.version_info[:2], "site-packages")
    if not os.path.isdir(packages):
        _host.warn("The virtual environment %s has no packages for this version of Python." % root)
        return
    import site

    before = len(sys.path)
    site.addsitedir(packages)
    # Ahead of the packages of the system, behind the standard library.
    added, rest = sys.path[before:], sys.path[:before]
    at = next((i for i, p in enumerate(rest) if p.endswith(("site-packages", "dist-packages"))), len(rest))
    sys.path[:] = rest[:at] + added + rest[at:]


def wait_for_threads(seconds):
    """Whether the threads that are to be waited for at the end have ended, after this many seconds at the most."""
    import threading
    import time

    deadline = time.monotonic() + seconds
    for thread in threading.enumerate():
        if thread is not threading.current_thread() and not thread.daemon:
            thread.join(max(0.0, deadline - time.monotonic()))
            if thread.is_alive():
                return False
    return True


def run_exit_handlers():
    import atexit

    atexit._run_exitfuncs()
