"""Names that may have been meant."""

import difflib
import pkgutil
import re
import sys


def suggestion(error):
    """The name that may have been meant where the error is about an unknown name, or None."""
    if isinstance(error, ModuleNotFoundError):
        return _module_suggestion(error.name)
    if isinstance(error, ImportError):
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
    parent, _, last = (name or "").rpartition(".")
    if parent:
        names = [m.name for m in pkgutil.iter_modules(getattr(sys.modules.get(parent), "__path__", []))]
    else:
        names = {*sys.stdlib_module_names, *(m.name for m in pkgutil.iter_modules())}
    found = _closest(last, names)
    return found and (parent + "." + found if parent else found)


def _closest(name, candidates):
    others = [c for c in candidates if isinstance(c, str) and c != name]
    return next(iter(difflib.get_close_matches(name, others, n=1, cutoff=0.7)), None)
