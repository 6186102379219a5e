#define PY_SSIZE_T_CLEAN
#include "python/interpreterLock.h"

#include <Python.h>

namespace standalone {

namespace {

thread_local bool keepsLock = false;

}  // namespace

void withInterpreterLock(const std::function<void()>& action) {
    struct Lock {
        ~Lock() { PyGILState_Release(state); }
        const PyGILState_STATE state = PyGILState_Ensure();
    };
    const Lock lock;
    action();
}

void withoutInterpreterLock(const std::function<void()>& action) {
    struct Release {
        ~Release() noexcept(false) { PyEval_RestoreThread(state); }  // ends other threads at Python's end
        PyThreadState* const state = PyEval_SaveThread();
    };
    const Release release;
    action();
}

void releasingInterpreterLock(const std::function<void()>& action) {
    if (!keepsLock && Py_IsInitialized() != 0 && PyGILState_Check() != 0) {
        withoutInterpreterLock(action);
    } else {
        action();
    }
}

int acquireInterpreterLock() { return PyGILState_Ensure(); }
void releaseInterpreterLock(int state) { PyGILState_Release(static_cast<PyGILState_STATE>(state)); }

KeepsInterpreterLock::KeepsInterpreterLock() { keepsLock = true; }
KeepsInterpreterLock::~KeepsInterpreterLock() { keepsLock = false; }
bool KeepsInterpreterLock::isHere() { return keepsLock; }

}  // namespace standalone
