#pragma once

#include <string>
#include <string_view>

// Python.h is large and defines macros; the one type that is named here is enough.
extern "C" {
typedef struct _object PyObject;  // NOLINT(bugprone-reserved-identifier): the name is Python's
}

namespace standalone {

/// A new Python text from UTF-16; unpaired surrogates are kept. Null with a Python exception set when memory
/// is short.
PyObject* pythonText(std::u16string_view text);

/// The UTF-16 form of a Python text; empty for any other object.
std::u16string utf16(PyObject* text);

}  // namespace standalone
