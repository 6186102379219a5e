"""What functions may ask of the client of the running request."""

import sys

import _numora_host as _host


class MissingCapabilityError(RuntimeError):
    """The client of the running request cannot do what a function needs.

    `identifier` says so to programs, also to those that get the error as a fault: it is the `faultId` of its condition.
    """

    __module__ = "numora"

    def __init__(self, identifier, message):
        super().__init__(message)
        self.identifier = identifier


def require(capability):
    """Called by a function that needs the client to have a capability, such as "figures".

    Raises MissingCapabilityError if the client has said what it can do and this is not among it.
    """
    if not isinstance(capability, str):
        raise TypeError("capability must be a string, not %s" % type(capability).__name__)
    missing = _host.missing_capability(capability, _function_of(sys._getframe(1)))
    if missing:
        raise MissingCapabilityError(*missing)


def _function_of(frame):
    """The name of the function that runs in a frame, or in which its lambda or comprehension does; None if there is none."""
    while frame is not None and not str(frame.f_globals.get("__name__")).startswith("numora."):
        name = frame.f_code.co_name
        if not name.startswith("<"):
            return name
        frame = frame.f_back
    return None


def identifier(error):
    """The identifier of an error that has one of its own, or an empty string."""
    text = error.identifier if isinstance(error, MissingCapabilityError) else ""
    return text if isinstance(text, str) else ""
