"""Runs a file as Python runs a script."""

import builtins
import json
import linecache
import os
import sys
import threading
import types

from . import _user
from ._errors import report
from ._prompts import read_line
from ._streams import Input

_INTERRUPTED = 130  # as of a program that SIGINT has ended, in shells
_KEPT = 1000

_BLOCK = "\x1e"  # begins a line that stands for several, as a JSON array

_statuses = {}  # of scripts that have ended, until their programs ask


def run(path, arguments, *, source=None, folder=None, file=None):
    """Runs a file as `__main__`, or `source` under its name, which is "-" for none; returns the exit status.

    `folder` is where its imports are looked for first: by default the one that holds the file. `file` is its absolute
    path, where that is not one of this machine. An error is shown on standard error. What the script has defined is in the workspace afterwards.
    """
    process = os.getpid()
    main = types.ModuleType("__main__")
    vars(main).update(__builtins__=builtins, __cached__=None)
    file = "<stdin>" if path == "-" else file or os.path.join(os.getcwd(), path)
    if path != "-":
        vars(main)["__file__"] = file
    threads = set(threading.enumerate())
    outer = sys.modules["__main__"], sys.argv
    sys.modules["__main__"], sys.argv = main, [path, *arguments]
    if folder is None:
        folder = os.path.dirname(os.path.realpath(path))
    sys.path.insert(0, folder)
    try:
        _execute(file, source, vars(main))
        _join_threads(threads)
    except BaseException as error:
        if os.getpid() != process:  # the script has forked
            raise
        return _status_of(error)
    finally:
        sys.modules["__main__"], sys.argv = outer
        if folder in sys.path:
            sys.path.remove(folder)
        _user.variables.update((name, value) for name, value in vars(main).items() if not name.startswith("__"))
    return 0


def run_program(name, path, arguments, **options):
    """The same for a program that asks for `status_of(name)` afterwards, and types what it has on its standard input."""
    outer, sys.stdin = sys.stdin, _TypedInput()
    try:
        _keep(name, run(path, arguments, **options))
    finally:
        sys.stdin = outer


def run_only(name, path, arguments, descriptors, **options):
    """The same where the interpreter ends with the script, whose standard streams are those at the descriptors."""
    import getpass

    from ._end import end

    for number, descriptor in enumerate(descriptors):
        os.dup2(descriptor, number)
    sys.stdin = sys.__stdin__ = open(0, closefd=False)
    sys.stdout = sys.__stdout__ = _output(1, "strict")
    sys.stderr = sys.__stderr__ = _output(2, "backslashreplace")
    getpass.getpass = getpass.unix_getpass
    status = run(path, arguments, **options)
    try:
        end(threading.TIMEOUT_MAX)
    except KeyboardInterrupt as interrupt:
        status = _status_of(interrupt)
    for stream in sys.__stdout__, sys.__stderr__:
        try:
            stream.flush()
        except (OSError, ValueError):  # as when the script has closed it
            status = status or 1
    _keep(name, status)


def _output(descriptor, errors):
    """Nothing is held back but a line that has not ended, so that it is there when the process dies."""
    file = open(descriptor, "w", encoding="utf-8", errors=errors, closefd=False)
    file.reconfigure(line_buffering=True)
    return file


def _keep(name, status):
    _statuses[name] = status
    if len(_statuses) > _KEPT:  # a program that has gone does not ask
        del _statuses[next(iter(_statuses))]


def status_of(name):
    return _statuses.pop(name, 1)


class _TypedInput(Input):
    """Lines of which several may come at a time."""

    def __init__(self):
        super().__init__()
        self._lines = []

    def next_line(self, frame):
        if not self._lines:
            line = read_line(frame)
            if not line.startswith(_BLOCK):
                return line
            self._lines = json.loads(line[1:])[::-1]
        return self._lines.pop()


def _execute(path, source, variables):
    if source is None:
        import importlib.util

        with open(path, "rb") as file:
            source = importlib.util.decode_source(file.read())
    source = source.removeprefix("\ufeff")
    # Without a time of change, so that it is never compared with a file.
    linecache.cache[path] = len(source), None, source.splitlines(True), path
    try:
        code = compile(source, path, "exec", dont_inherit=True)
    except (SyntaxError, ValueError) as error:
        raise error.with_traceback(None) from None
    exec(code, variables)


def _join_threads(before):
    """Waits for the threads that were started, as Python does at its end, but for those of pools, which have none."""
    pools = sys.modules.get("concurrent.futures.thread")
    for thread in threading.enumerate():
        if thread in before or thread.daemon or pools and thread in pools._threads_queues:
            continue
        thread.join()


def _is_closed(descriptor):
    """Whether nobody reads any more what is written there."""
    import select

    poll = select.poll()
    poll.register(descriptor, 0)
    return any(event & select.POLLERR for _, event in poll.poll(0))


def _status_of(error):
    """Shows the error that a script has ended with."""
    if isinstance(error, SystemExit):
        if error.code is None or isinstance(error.code, int):
            code = int(error.code or 0)
            return code & 0xFF if -(2**63) <= code < 2**63 else 0xFF
        print(error.code, file=sys.stderr)
        return 1
    if isinstance(error, BrokenPipeError) and _is_closed(1):
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)  # for what is left
        return 1
    kind, _, _, text, *_ = report(error)
    sys.stderr.write(text)
    return _INTERRUPTED if kind == "interrupt" else 1
