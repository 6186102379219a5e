#pragma once

#include "nmutil/io/NMSink.h"
#include "python/pythonText.h"

namespace standalone {

class InterpreterServices;

/// Prints a Python string in pieces of UTF-16, in which no pair of surrogates is cut. Without `services`, as
/// in a forked child and at the end, it goes to the file descriptor itself. They are asked for anew for each
/// piece: a print may wait with the interpreter's lock released, and Python end meanwhile.
///
/// Threads: with the interpreter's lock.
/// Returns: a new reference to the number of characters; null with a Python exception set.
PyObject* printText(InterpreterServices* const& services, nmutil::io::StreamTypeEnum stream, PyObject* text);

}  // namespace standalone
