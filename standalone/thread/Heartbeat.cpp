#define PY_SSIZE_T_CLEAN
#include "thread/Heartbeat.h"

#include <Python.h>

namespace standalone {

void Heartbeat::attach() { state_ = PyThreadState_Get(); }

// A pending call needs no lock of the interpreter to be asked for, and runs between two steps of Python code.
std::chrono::milliseconds Heartbeat::deafFor() {
    const auto now = Clock::now();
    const bool hasBeaten = hasBeaten_.load();
    if (hasBeaten || _PyThreadState_UncheckedGet() != state_) asked_ = now;
    if (hasBeaten) hasBeaten_.store(Py_AddPendingCall(&Heartbeat::beat, this) != 0);
    return std::chrono::duration_cast<std::chrono::milliseconds>(now - asked_);
}

int Heartbeat::beat(void* heartbeat) {
    static_cast<Heartbeat*>(heartbeat)->hasBeaten_.store(true);
    return 0;
}

}  // namespace standalone
