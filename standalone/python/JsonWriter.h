#pragma once

#include <cstddef>

#include "connector/common/DataBuffer.h"
#include "python/PyRef.h"

namespace standalone {

/// Writes Python values as JSON, with NumPy arrays straight from their memory.
///
/// What becomes what: None null; bool, int, float, str, list, tuple and dict with str keys as everywhere; NaN
/// and infinities null; complex {"re": , "im": }; NumPy's numbers as Python's, its arrays nested arrays in
/// row order, masked elements null.
///
/// Threads: the interpreter's lock is held. Interrupts and requests that run between two steps get their turn
/// in between.  Source: RFC 8259.
class JsonWriter {
public:
    /// Values may be nested this deep, and their text be this long, in bytes.
    static constexpr int deepest = 1000;
    static constexpr std::size_t longest = std::size_t{1} << 30;

    /// What is written is appended to `out`, in UTF-8.
    explicit JsonWriter(connector::common::DataBuffer& out) : out_(out) {}

    /// Returns false with a Python exception set: a TypeError that names the type for a value without a JSON
    /// form, a RecursionError for one nested too deeply, a ValueError for one that is too long, what an
    /// interrupt raises, a MemoryError. A part of the value may have been written then.
    bool write(PyObject* value);

private:
    bool writeValue(PyObject* value);
    bool writeText(PyObject* text);
    bool writeItems(PyObject* sequence);
    bool writeMembers(PyObject* dictionary);
    bool writeFromNumPy(PyObject* value);
    bool writeArray(PyObject* array, char kind);
    template <class T>
    bool writeElements(const Py_buffer& view);
    template <class T>
    bool writeDimension(const Py_buffer& view, int dimension, const char*& next);

    /// Counts `steps`, and gives others their turn when it is time.
    bool countSteps(Py_ssize_t steps);

    connector::common::DataBuffer& out_;
    Py_ssize_t untilTurn_ = stepsPerTurn;
    int depth_ = 0;

    static constexpr Py_ssize_t stepsPerTurn = 50'000;
};

}  // namespace standalone
