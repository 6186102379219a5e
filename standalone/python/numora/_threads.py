"""Has threads, and what their pools run, belong to the request whose code starts it, so that what it prints has its name."""

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


def attribute_submitted():
    executor = sys.modules["concurrent.futures.thread"].ThreadPoolExecutor
    submit = executor.submit

    def submit_of_this_request(self, fn, /, *args, **kwargs):
        return submit(self, _host.of_this_request(fn), *args, **kwargs)

    executor.submit = submit_of_this_request
