"""Has threads belong to the request whose code starts them, so that what they print has its name."""

import _thread
import sys

import _numora_host as _host


def attribute_threads():
    start_new_thread = _thread.start_new_thread

    def start(function, *arguments):
        return start_new_thread(_host.of_this_request(function), *arguments)

    _thread.start_new_thread = _thread.start_new = start
    if "threading" in sys.modules:
        sys.modules["threading"]._start_new_thread = start
