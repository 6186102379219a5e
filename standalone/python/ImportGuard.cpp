#define PY_SSIZE_T_CLEAN
#include "python/ImportGuard.h"

#include <string_view>

#include <Python.h>

#include "python/PyRef.h"

namespace standalone {

namespace {

std::string_view textOf(PyObject* string) {
    const char* const text = PyUnicode_AsUTF8(string);
    if (text == nullptr) PyErr_Clear();
    return text != nullptr ? text : "";
}

PyRef codeOf(PyObject* frame) {
    return PyRef(reinterpret_cast<PyObject*>(PyFrame_GetCode(reinterpret_cast<PyFrameObject*>(frame))));
}

// Whether the code of a frame is the import system's, which is part of CPython under names of this form.
bool isImportSystem(PyObject* frame) {
    const PyRef code = codeOf(frame);
    return textOf(reinterpret_cast<PyCodeObject*>(code.get())->co_filename).starts_with("<frozen importlib.");
}

// Whether a frame makes a module of the package `numora`, of which calls themselves consist.
bool makesOwnModule(PyObject* frame) {
    const PyRef code = codeOf(frame);
    const auto* const parts = reinterpret_cast<PyCodeObject*>(code.get());
    const auto file = textOf(parts->co_filename);
    // No call consists of the figures and the guest, which take as long as their libraries do.
    return file.starts_with("<numora.") && file != "<numora._figures>" && file != "<numora._ipython>" &&
           textOf(parts->co_name) == "<module>";
}

PyRef callerOf(const PyRef& frame) {
    return PyRef(reinterpret_cast<PyObject*>(PyFrame_GetBack(reinterpret_cast<PyFrameObject*>(frame.get()))));
}

template <class Predicate>
bool isAnyFrame(PyObject* innermost, Predicate matches) {
    for (PyRef frame = PyRef::share(innermost); frame; frame = callerOf(frame)) {
        if (matches(frame.get())) return true;
    }
    return false;
}

}  // namespace

bool ImportGuard::mayRunIn(PyObject* frame) {
    if (PyFrame_Check(frame) == 0 || !isAnyFrame(frame, isImportSystem)) return true;
    const auto now = Clock::now();
    // Who has not been asked for that long is asked about another import.
    if (now - lastAsked_ > longImport) since_ = now;
    lastAsked_ = now;
    return now - since_ > longImport && !isImportSystem(frame) && !isAnyFrame(frame, makesOwnModule);
}

}  // namespace standalone
