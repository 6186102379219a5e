"""The names of modules that can be imported, found without importing them."""

import _imp
import os
import re
import sys

from ._objects import attribute_names, own_vars

_EXTENSIONS = {"py", *(suffix[1:] for suffix in _imp.extension_suffixes())}


def imported_names(statement, typed):
    """The names that may follow in an import statement, or None outside of one."""
    begin = re.match(r"\s*(from|import)\s+", statement)
    if not begin:
        return None
    package, rest = "", statement[begin.end() :]
    if begin[1] == "from":
        package, space, word = re.match(r"([\w.]*)(\s*)(import\b)?", rest).groups()
        if package.startswith("."):
            return []
        if not space:
            return _modules(package.rstrip("."), typed)
        if not word:
            return ["import"]
        rest = rest.partition("import")[2]
    last = rest.rpartition(",")[2].lstrip(" \t\n\\(")
    if re.fullmatch(r"[\w.]+\s+", last):
        return ["as"]
    if not re.fullmatch(r"(?:\w+\.)*", last):
        return []
    module = sys.modules.get(package) if package else None
    return _modules(package or last.rstrip("."), typed) | (attribute_names(module) if module is not None else set())


def _modules(package, typed):
    """The names of the modules in `package`, or of those at the top, that begin with `typed`."""
    if len(package) > 200:
        return set()
    inside = package + "." if package else ""
    known = [*sys.modules, *(() if package else sys.stdlib_module_names)]
    names = {name[len(inside) :].partition(".")[0] for name in known if type(name) is str and name.startswith(inside)}
    for folder in _folders(package):
        try:
            entries = os.listdir(folder or ".")
        except (OSError, ValueError):  # a zip file, or no path at all
            continue
        for entry in entries:
            name, dot, ending = entry.partition(".")
            if not entry.startswith(typed):
                continue
            if ending in _EXTENSIONS if dot else os.path.exists(os.path.join(folder, entry, "__init__.py")):
                names.add(name)
    if package == "numora":  # its modules are an implementation of its functions
        names = {name for name in names if not name.startswith("_")}
    return {name for name in names if name.isidentifier() and name != "__init__"}


def _folders(package):
    """The folders that hold the modules of `package`; nothing is imported to find them."""
    folders, name = sys.path if type(sys.path) is list else [], ""
    for part in package.split(".") if package else ():
        name += "." + part if name else part
        path = own_vars(sys.modules.get(name)).get("__path__")
        if type(path) is list:
            folders = path
        else:
            folders = [os.path.join(folder, part) for folder in folders if type(folder) is str]
    return [folder for folder in folders if type(folder) is str]
