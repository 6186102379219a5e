#pragma once

#include "python/PyRef.h"

namespace standalone {

/// Whether `value` is of the class `name` of one of NumPy's modules, if that is loaded. Runs no code of the
/// value.  Threads: with the interpreter's lock.
bool isOfNumPyClass(PyObject* value, const char* module, const char* name);

/// The elements of an array in row order, converted to `type`. A copy if that `isCopy`, or where one is
/// needed. Empty with a Python exception set.  Threads: with the interpreter's lock.
PyRef inRowOrder(PyObject* array, const char* type, bool isCopy);

/// The memory of an object with contiguous elements. Empty with a Python exception set.
/// Threads: with the interpreter's lock.
class BufferView {
public:
    explicit BufferView(PyObject* object)
        : isHeld_(PyObject_GetBuffer(object, &view_, PyBUF_C_CONTIGUOUS) == 0) {}
    ~BufferView() {
        if (isHeld_) PyBuffer_Release(&view_);
    }
    BufferView(const BufferView&) = delete;
    BufferView& operator=(const BufferView&) = delete;
    explicit operator bool() const { return isHeld_; }
    const Py_buffer& operator*() const { return view_; }

private:
    Py_buffer view_{};
    const bool isHeld_;
};

}  // namespace standalone
