"""The configuration of the interpreter."""

import _numora_host as _host


def configure(key, value):
    """Changes a value of the interpreter's configuration, until the interpreter ends.

    Keys are "connector.interpreter.dequeMode", the state that calls wait for which name none, and
    "connector.interpreter.telemetryFile", the path of the file that records of usage are added to. Raises ValueError
    for others, and for values that they cannot have.
    """
    _host.configure(key, value)
