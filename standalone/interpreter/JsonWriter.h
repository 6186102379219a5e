#pragma once

#include "connector/common/DataBuffer.h"
#include "interpreter/PyRef.h"

namespace standalone {

/// Writes Python values as JSON, with NumPy arrays straight from their memory.
///
/// What becomes what: None null; bool, int, float, str, list, tuple and dict with str keys as everywhere; NaN
/// and infinities null; complex {"re": , "im": }; NumPy's numbers as Python's, its arrays nested arrays in
/// row order, masked elements null.
///
/// Threads: the interpreter's lock is held.  Source: RFC 8259.
class JsonWriter {
public:
    /// Appends `value` to `out`, in UTF-8. Returns false with a Python exception set: a TypeError that names
    /// the type for a value without a JSON form, a RecursionError for one nested too deep, what an interrupt
    /// raises, a MemoryError. `out` may hold a part of the value then.
    bool write(PyObject* value, connector::common::DataBuffer& out);

private:
    bool writeValue(PyObject* value, connector::common::DataBuffer& out);
    bool writeItems(PyObject* sequence, connector::common::DataBuffer& out);
    bool writeMembers(PyObject* dictionary, connector::common::DataBuffer& out);
    bool writeFromNumPy(PyObject* value, connector::common::DataBuffer& out);
    bool writeArray(PyObject* array, char kind, connector::common::DataBuffer& out);
    /// Whether `value` is of NumPy's class `name`.
    static bool isNumPys(PyObject* value, const char* module, const char* name);
};

}  // namespace standalone
