#pragma once

#include <utility>

#include <Python.h>

namespace standalone {

/// An owned reference to a Python object, or none.  Threads: with the interpreter's lock.
class PyRef {
public:
    /// Owns: takes over the reference `object`.
    explicit PyRef(PyObject* object = nullptr) : object_(object) {}
    static PyRef share(PyObject* object) {
        Py_XINCREF(object);
        return PyRef(object);
    }
    ~PyRef() { Py_XDECREF(object_); }
    PyRef(PyRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    PyRef& operator=(PyRef&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    PyObject* get() const { return object_; }
    PyObject* release() { return std::exchange(object_, nullptr); }
    explicit operator bool() const { return object_ != nullptr; }

private:
    PyObject* object_;
};

}  // namespace standalone
