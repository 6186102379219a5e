"""Writes the modules of the package `numora` as a C++ table of bytecode.

    python3 freeze.py OUTPUT MODULE...
"""

import marshal
import os
import sys

HEAD = """// Made by freeze.py.

#include "python/frozenModules.h"

#include <Python.h>

namespace standalone {

const _frozen frozenModules[] = {
"""
TAIL = """    {nullptr, nullptr, 0, false, nullptr},
};

}  // namespace standalone
"""


def row(path):
    package, module = path.removesuffix(".py").split(os.sep)[-2:]
    is_package = module == "__init__"
    name = package if is_package else package + "." + module
    with open(path, encoding="utf-8") as file:
        code = marshal.dumps(compile(file.read(), "<%s>" % name, "exec", dont_inherit=True))
    text = "".join('\n     "%s"' % "".join("\\%03o" % byte for byte in code[at : at + 24]) for at in range(0, len(code), 24))
    return '    {"%s", reinterpret_cast<const unsigned char*>(%s),\n     %d, %s, nullptr},\n' % (
        name, text, len(code), str(is_package).lower())  # fmt: skip


def main(output, *modules):
    with open(output, "w", encoding="ascii") as file:
        file.write(HEAD)
        for path in sorted(modules):
            file.write(row(path))
        file.write(TAIL)


main(*sys.argv[1:])
