"""Makes interrupts wait."""

from contextlib import contextmanager

import _numora_host as _host


@contextmanager
def held():
    """For what must not be left halfway. In threads it does nothing: they get no interrupts."""
    were_enabled = _host.enable_interrupts(False)
    try:
        yield
    finally:
        _host.enable_interrupts(were_enabled)
