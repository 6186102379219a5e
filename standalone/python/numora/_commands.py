"""What consoles run for !COMMAND and %NAME."""

import os
import sys

from . import _user
from ._errors import interrupt_alone
from ._processes import run_in_group


def shell(command):
    """Runs a command of the shell, which reads nothing; what it prints is shown as it comes."""
    try:
        status = run_in_group(command)[0]
    except KeyboardInterrupt:
        raise interrupt_alone() from None
    if status:
        print("The command has ended with status %d." % status, file=sys.stderr)


def measure(code):
    """Runs code, shows the value of an expression at its end, and tells how long it took."""
    import ast
    import linecache
    import time

    file = "<%time>"
    tree = ast.parse(code, file)
    linecache.cache[file] = (len(code), None, code.splitlines(True), file)
    last = tree.body.pop() if tree.body and isinstance(tree.body[-1], ast.Expr) else None
    parts = compile(tree, file, "exec"), last and compile(ast.Expression(last.value), file, "eval")
    wall, processor = time.perf_counter(), time.process_time()
    try:
        exec(parts[0], _user.variables)
        value = parts[1] and eval(parts[1], _user.variables)
    finally:
        wall, processor = time.perf_counter() - wall, time.process_time() - processor
        print("Time: %s, of the processor: %s" % (_duration(wall), _duration(processor)))
    if parts[1]:
        sys.displayhook(value)


def _duration(seconds):
    for unit, size in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if seconds >= size:
            break
    return "%.3g %s" % (seconds / size, unit) if seconds < 1000 else "%.0f s" % seconds


def run_file(path, arguments):
    """Runs a file of Python code as a program."""
    from . import _script

    path = os.path.expanduser(path)
    if not os.path.isfile(path):
        return print("%%run: there is no file %s" % path, file=sys.stderr)
    status = _script.run(path, arguments)
    if status:
        print("The program has ended with status %d." % status, file=sys.stderr)


def change_folder(folder):
    """Changes the working directory, to that of the user without a name, and tells it."""
    try:
        os.chdir(os.path.expanduser(folder or "~"))
    except OSError as error:
        return print("%%cd: %s: %s" % (folder, error.strerror), file=sys.stderr)
    print_folder()


def print_folder():
    print(os.getcwd())


def about():
    """Which Python this is: its version, and where it is if that is a virtual environment."""
    version = "%d.%d.%d" % sys.version_info[:3]
    return version if sys.prefix == sys.base_prefix else "%s of %s" % (version, sys.prefix)


def source(name):
    """The source of what a dotted name stands for, at most 100,000 characters; empty if it is not there."""
    import inspect

    from ._inspection import found

    try:
        return inspect.getsource(inspect.unwrap(found(name)))[:100_000]
    except (OSError, TypeError, ValueError):
        return ""
