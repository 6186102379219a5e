"""What Python code meets of the program that embeds it: streams, prompts, error reports and the window's size."""

import __main__
import codecs
import collections
import io
import os
import sys

import _numora_host as _host
from numora import MissingCapabilityError as _MissingCapabilityError

# The prompts at which a line can be read, numbered as the host numbers them.
_DEBUG, _INPUT, _KEYBOARD = 1, 2, 3


class Output(io.TextIOBase):
    """Text stream into the command window. `write` is the native function itself, so print() runs no Python frame.

    Nor does `fileno`: input() drops whatever is raised in it, an interrupt too.
    """

    encoding = "utf-8"
    errors = "replace"
    newlines = None
    line_buffering = True
    mode = "w"

    def __init__(self, name, descriptor, write):
        self.name = name
        self.write = write
        self.fileno = descriptor.__index__  # captured too, so a child process may write there
        self.buffer = OutputBytes(self)

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
        self.fileno = (0).__index__  # which is empty, for child processes; no Python frame, as in Output
        self.buffer = InputBytes(self)

    def readable(self):
        return True

    def readline(self, size=-1):
        line = self._rest or _read_line(_requester(sys._getframe(1)))
        if size is None or size < 0:
            size = len(line)
        self._rest = line[size:]
        return line[:size]

    def read(self, size=-1):
        limit = sys.maxsize if size is None or size < 0 else size
        text = ""
        while len(text) < limit:
            # The frame that asks is this one's caller, as far as the prompt is concerned.
            line = self._rest or _read_line(_requester(sys._getframe(1)))
            if not line:
                break
            take = limit - len(text)
            text, self._rest = text + line[:take], line[take:]
        return text

    def close(self):
        pass


class InputBytes(io.RawIOBase):
    """The bytes side of an Input, in UTF-8."""

    def __init__(self, text):
        self._text = text

    def readable(self):
        return True

    def readline(self, size=-1):
        return self._text.readline().encode("utf-8", "surrogatepass")

    def read(self, size=-1):
        return self._text.read(size).encode("utf-8", "surrogatepass")

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


def _system(command):
    """As os.system, but it can be interrupted: the command gets the interrupt, too."""
    import signal
    import subprocess

    process = subprocess.Popen(command, shell=True)
    try:
        status = process.wait()
    except BaseException:
        process.send_signal(signal.SIGINT)
        try:
            process.wait(0.25)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        raise
    return -status if status < 0 else status << 8


def _getpass(prompt="Password: ", stream=None):
    return input(prompt)


def _after_fork_in_child():
    # The window and its threads stayed in the parent, which captures what is written to the descriptors.
    _host.leave_window()
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


def _use_figures():
    if "MPLBACKEND" not in os.environ:
        sys.modules["matplotlib"].rcParams["backend"] = "module://_numora_figures"


class _Imports:
    """Prepares libraries when they are first imported, and finds the module through which Matplotlib shows figures."""

    preparations = {"numpy": _apply_numpy_width, "matplotlib": _use_figures}

    @classmethod
    def find_spec(cls, name, path=None, target=None):
        if name == "_numora_figures":
            from importlib.machinery import ModuleSpec

            return ModuleSpec(name, cls)
        prepare = cls.preparations.get(name)
        if prepare is None:
            return None
        from importlib.machinery import PathFinder

        spec = PathFinder.find_spec(name)
        if spec is not None and spec.loader is not None:
            execute = spec.loader.exec_module

            def exec_module(module):
                execute(module)
                prepare()

            spec.loader.exec_module = exec_module
        return spec

    @staticmethod
    def create_module(spec):
        return None

    @staticmethod
    def exec_module(module):
        exec(compile(figures_source, "<_numora_figures>", "exec"), vars(module))


# --- errors ----------------------------------------------------------------------------------------------------------


def report(error):
    """Describes the exception that ended an evaluation.

    Returns (kind, type name, message, text to show, frames, suggestion or None, causes, builtin or None, is extension):
    kind is "exit" for an orderly end without an error, "interrupt" or "error"; frames are (file, function, line); each
    cause is (type name, message, frames); the builtin function is the one in which it arose, and may be that of an
    extension.
    """
    name = type(error).__name__
    bdb = sys.modules.get("bdb")
    if bdb and isinstance(error, bdb.BdbQuit):
        if not getattr(error, "is_interrupt", False):
            return ("exit", name, "", "", *_NO_DETAILS)
        return ("interrupt", "KeyboardInterrupt", "", "KeyboardInterrupt\n", *_NO_DETAILS)
    if isinstance(error, SystemExit):
        if error.code is None or error.code == 0:
            return ("exit", name, "", "", *_NO_DETAILS)
        message = _text_of(error.code) or ""
        return ("error", name, message, "SystemExit: %s\n" % message, *_NO_DETAILS)

    sys.last_type, sys.last_value, sys.last_traceback = type(error), error, error.__traceback__
    import traceback

    if isinstance(error, SyntaxError) and error.text is None and error.filename:
        import linecache

        error.text = linecache.getline(error.filename, error.lineno or 0)
    # The text is asked for once, and an interrupt of that leaves the call stack to be shown.
    message = _text_of(error)
    try:
        if message is None:
            raise RuntimeError
        described = traceback.TracebackException.from_exception(error, compact=True)
        _hide_own_frames(described)
        text = "".join(described.format())
    except Exception:
        message = message or "<its text cannot be had>"
        stack = "".join(traceback.format_tb(error.__traceback__))
        text = "Traceback (most recent call last):\n%s%s: %s\n" % (stack, name, message)
    kind = "interrupt" if isinstance(error, KeyboardInterrupt) else "error"
    try:
        suggestion = _suggestion(error)
    except BaseException:
        suggestion = None  # looking for one runs code of the object at fault
    return (kind, _kind_of(error), message, shortened(text), _frames(error), suggestion, *_sources_of(error))


_NO_DETAILS = ([], None, [], None, False)


def _frames(error):
    import traceback

    return [(f.filename, f.name, f.lineno or 0) for f in traceback.extract_tb(error.__traceback__)[-100:]]


class HostError(RuntimeError):
    """An error that the program itself has raised, with its identifier."""


def set_last_error(errors):
    """Makes the first of the errors, (identifier, message), the last one that there was; each led to the one before it."""
    last = None
    for name, message in reversed(errors):
        error = HostError(message)
        error.identifier = name
        error.__cause__ = last
        last = error
    sys.last_type, sys.last_value, sys.last_traceback = type(last), last, None


def _kind_of(error):
    return identifier(error).removeprefix("NUMORA:") or type(error).__name__


def _sources_of(error):
    """The causes of an error and the builtin function in which it arose, as far as they can be told."""
    try:
        causes = [(_kind_of(e), _text_of(e) or "", _frames(e)) for e in _load("_numora_errors", errors_source).causes(error)]
    except BaseException:
        causes = []
    try:
        return (causes, *_load("_numora_errors", errors_source).origin(error))
    except BaseException:
        return (causes, None, False)


def identifier(error):
    """The identifier of an error that has one of its own, or no text."""
    text = error.identifier if isinstance(error, _MissingCapabilityError) else ""
    return text if isinstance(text, str) else ""


_TEXT_LIMIT = 100_000


def _text_of(value):
    """The text of an object, or None where its own code fails or is interrupted."""
    try:
        return shortened(str(value))
    except BaseException:
        return None


def shortened(text):
    """The beginning and the end of a text that is too long to be shown."""
    if len(text) <= _TEXT_LIMIT:
        return text
    half = _TEXT_LIMIT // 2
    return "%s\n[... %d characters ...]\n%s" % (text[:half], len(text) - 2 * half, text[-half:])


def end_forked_child(error):
    """Ends a process that was forked and ran on to the end of the code; returns its exit status."""
    status = 0
    if isinstance(error, SystemExit):
        status = error.code if isinstance(error.code, int) else 0 if error.code is None else 1
        if status == 1 and not isinstance(error.code, int):
            print(error.code, file=sys.stderr)
    elif error is not None:
        import traceback

        traceback.print_exception(error, file=sys.stderr)
        status = 1
    for stream in (sys.stdout, sys.stderr):
        try:
            stream.flush()
        except Exception:
            pass
    return status & 0xFF


def _hide_own_frames(described):
    """Takes the program's own modules out of the call stacks that are shown: the code at fault is the user's."""
    while described is not None:
        described.stack[:] = [f for f in described.stack if not f.filename.startswith("<_numora_")]
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


# --- tools -----------------------------------------------------------------------------------------------------------

variables = vars(__main__)  # where evaluations run, whatever the code makes of sys.modules

tools_source = calls_source = errors_source = events_source = figures_source = ""  # set by the host
_loaded = {}


def _load(name, source):
    """A module of the program's own, compiled when it is first used.

    It is known only once it is complete, so a call that interrupts the first one loads it for itself.
    """
    if name not in _loaded:
        module = type(sys)(name)
        exec(compile(source, "<%s>" % name, "exec"), vars(module))
        sys.modules[name] = _loaded[name] = module
    return _loaded[name]


def tools():
    """What clients ask of the workspace."""
    return _load("_numora_tools", tools_source)


def events():
    """What clients are told of."""
    return _load("_numora_events", events_source)


def announce_workspace():
    """Tells clients which variables the last evaluation has changed."""
    events().announce_workspace()


def call(name, nargout, arguments):
    """Calls a function for a client, with JSON arguments."""
    return _load("_numora_calls", calls_source).call(name, nargout, arguments)


def call_with_values(name, nargout, values):
    """Calls a function with values of Python's own."""
    return _load("_numora_calls", calls_source).call_with_values(name, nargout, values)


def message(error):
    """What a client is told of an error."""
    return _load("_numora_calls", calls_source).message(error)


_EVALUATIONS_KEPT = 1_000
_TEXT_KEPT = 1 << 20  # characters of all of them

evaluated = collections.deque()
_text_size = 0


def remember(number, code):
    """Adds an evaluation to the history."""
    global _text_size
    size = len(code)
    if size > _TEXT_KEPT:
        return  # it would take the place of all others
    evaluated.append((number, code))
    _text_size += size  # with no call within the sum, since other evaluations may come in at calls
    while len(evaluated) > _EVALUATIONS_KEPT or _text_size > _TEXT_KEPT:
        size = len(evaluated.popleft()[1])
        _text_size -= size


# --- start -----------------------------------------------------------------------------------------------------------


def start():
    """Connects this interpreter to the program around it."""
    import getpass
    import signal

    sys.stdout = sys.__stdout__ = Output("<stdout>", 1, _host.write_out)
    sys.stderr = sys.__stderr__ = Output("<stderr>", 2, _host.write_err)
    sys.stdin = sys.__stdin__ = Input()
    sys.breakpointhook = _breakpoint
    signal.signal(signal.SIGRTMIN, _host.run_requests)
    sys.unraisablehook = _host.unraisable
    sys.ps1, sys.ps2 = ">>> ", "... "
    sys.modules["readline"] = None  # line editing belongs to the client, and its library to the program
    sys.meta_path.insert(0, _Imports)
    getpass.getpass = _getpass
    os.system = _system
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


def restore_interrupts():
    """Undoes what code did to the handler of interrupts, beside setting one of its own."""
    import signal

    if signal.getsignal(signal.SIGINT) in (signal.SIG_DFL, signal.SIG_IGN, None):
        signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGRTMIN, _host.run_requests)


def end(seconds):
    """Runs what code registered for the end, and waits for its threads for this many seconds at the most.

    Returns whether all of them have ended.
    """
    import atexit
    import threading
    import time

    deadline = time.monotonic() + seconds

    def end_pools():
        # Worker threads of executors end only when asked, which Python does at this place, too.
        for callback in reversed(list(getattr(threading, "_threading_atexits", ()))):
            callback()

    others = [t for t in threading.enumerate() if t is not threading.current_thread() and not t.daemon]
    pools = threading.Thread(target=end_pools, daemon=True)
    pools.start()
    for thread in [pools, *others]:
        thread.join(max(0.0, deadline - time.monotonic()))
    have_ended = not any(t.is_alive() for t in [pools, *others])
    if not have_ended and "multiprocessing" in sys.modules:
        for child in sys.modules["multiprocessing"].active_children():
            child.terminate()
    atexit._run_exitfuncs()
    return have_ended
