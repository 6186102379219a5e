"""Child processes of the interpreter."""

import os
import sys

import _numora_host as _host


def system(command):
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


def run_in_group(command, *, is_shell=True, text=None, out=None, err=None):
    """Runs a command that reads nothing, or a text; an interrupt ends it with all that it has started.

    Returns its status, and what it has printed into pipes.
    """
    import subprocess

    source = subprocess.DEVNULL if text is None else subprocess.PIPE
    process = subprocess.Popen(command, shell=is_shell, stdin=source, stdout=out, stderr=err, process_group=0)
    try:
        printed = process.communicate(text)
    except BaseException as error:
        _end_group(process)
        raise error.with_traceback(None)
    return process.returncode, *printed


def _end_group(process):
    """Ends a command with all that it has started: it is asked first."""
    import signal
    import subprocess

    try:
        os.killpg(process.pid, signal.SIGINT)
        process.wait(0.25)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
    except ProcessLookupError:
        process.wait()


def after_fork_in_child():
    # The window and its threads stayed in the parent, which captures what is written to the descriptors.
    _host.leave_window()
    sys.stdout = open(1, "w", closefd=False, buffering=1, errors="replace")
    sys.stderr = open(2, "w", closefd=False, buffering=1, errors="replace")
    sys.stdin = open(os.devnull)


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
