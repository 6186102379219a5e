#define PY_SSIZE_T_CLEAN
#include "python/ImportGuard.h"

#include <string_view>

#include <Python.h>

#include "python/PyRef.h"

namespace standalone {

namespace {

// Whether the code of a frame is the import system's, which is part of CPython under names of this form.
bool isImportSystem(PyObject* frame) {
    const PyRef code(reinterpret_cast<PyObject*>(PyFrame_GetCode(reinterpret_cast<PyFrameObject*>(frame))));
    const char* name = PyUnicode_AsUTF8(reinterpret_cast<PyCodeObject*>(code.get())->co_filename);
    if (name == nullptr) PyErr_Clear();
    return name != nullptr && std::string_view(name).starts_with("<frozen importlib.");
}

PyRef callerOf(const PyRef& frame) {
    return PyRef(reinterpret_cast<PyObject*>(PyFrame_GetBack(reinterpret_cast<PyFrameObject*>(frame.get()))));
}

bool isInImport(PyObject* innermost) {
    for (PyRef frame = PyRef::share(innermost); frame; frame = callerOf(frame)) {
        if (isImportSystem(frame.get())) return true;
    }
    return false;
}

}  // namespace

bool ImportGuard::mayRunIn(PyObject* frame) {
    if (PyFrame_Check(frame) == 0 || !isInImport(frame)) return true;
    const auto now = Clock::now();
    // Who has not been asked for that long is asked about another import.
    if (now - lastAsked_ > longImport) since_ = now;
    lastAsked_ = now;
    return now - since_ > longImport && !isImportSystem(frame);
}

}  // namespace standalone
