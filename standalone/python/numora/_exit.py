"""What `exit` and `quit` stand for."""

import builtins

import _numora_host as _host


class Exit(type(builtins.exit)):
    """As Python's own; in a notebook it asks that to end its kernel."""

    def __call__(self, code=None):
        if not _host.has_capability("notebook"):
            super().__call__(code)
        from ._cells import ask_exit

        ask_exit()

    @property
    def _ipython_display_(self):
        return self if _host.has_capability("notebook") else None  # without parentheses, too
