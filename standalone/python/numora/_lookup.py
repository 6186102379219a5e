"""Finds the functions that clients call by name."""

import builtins
import importlib
import sys

from . import _user


def find_function(name):
    """Looks a name up in the workspace, then, dotted, through modules, then among the builtins."""
    head, dot, rest = name.partition(".")
    found = _find_head(name, head, bool(dot))
    for attribute in rest.split(".") if dot else ():
        try:
            found = getattr(found, attribute)
        except AttributeError:
            module = _module(found.__name__ + "." + attribute) if isinstance(found, type(sys)) else None
            if module is None:
                raise
            found = module
    if not callable(found):
        raise TypeError("'%s' is not a function but an object of type %s" % (name, type(found).__name__))
    return found


def _find_head(name, head, is_dotted):
    if head in _user.variables:
        return _user.variables[head]
    module = _module(head) if is_dotted or head in sys.modules else None
    if module is not None:
        return module
    if hasattr(builtins, head):
        return getattr(builtins, head)
    raise NameError("there is no function named '%s'" % name)


def _module(name):
    """The named module, imported if need be, or None if there is none. What fails within it is raised."""
    try:
        return importlib.import_module(name)
    except ModuleNotFoundError as error:
        if error.name and (name + ".").startswith(error.name + "."):
            return None
        raise
    except ValueError:  # an empty name
        return None
