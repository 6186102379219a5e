#pragma once

#include <Python.h>

#include "python/PyRef.h"

namespace standalone {

/// Takes asyncio's running loop away from the calling thread for as long as it lives, so that other code can
/// run a loop of its own between two steps of code that awaits.  Threads: with the interpreter's lock.
class SuspendedEventLoop {
public:
    SuspendedEventLoop() {
        const PyRef name(PyUnicode_FromString("asyncio.events"));
        events_ = PyRef(name ? PyImport_GetModule(name.get()) : nullptr);
        if (events_) loop_ = PyRef(PyObject_CallMethod(events_.get(), "_get_running_loop", nullptr));
        if (loop_ && loop_.get() != Py_None) setRunning(Py_None);
        PyErr_Clear();  // asyncio may be half loaded
    }
    ~SuspendedEventLoop() {
        if (loop_ && loop_.get() != Py_None) setRunning(loop_.get());
    }
    SuspendedEventLoop(const SuspendedEventLoop&) = delete;
    SuspendedEventLoop& operator=(const SuspendedEventLoop&) = delete;

private:
    void setRunning(PyObject* loop) {
        PyObject *type = nullptr, *error = nullptr, *trace = nullptr;
        PyErr_Fetch(&type, &error, &trace);
        const PyRef done(PyObject_CallMethod(events_.get(), "_set_running_loop", "O", loop));
        PyErr_Restore(type, error, trace);  // instead of any other
    }

    PyRef events_, loop_;
};

}  // namespace standalone
