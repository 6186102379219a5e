#pragma once

#include "interpreter/pythonText.h"

namespace standalone {

class InterpreterServices;

/// CPython, from its start to its end, as a scoped object.
///
/// Threads: made, used and destroyed on the interpreter thread, which holds the interpreter's lock in
/// between.
class PythonRuntime {
public:
    /// Starts CPython with the modules `numora` and the host's own, and redirects its standard streams to
    /// `services`. Throws: std::runtime_error with CPython's own text.
    explicit PythonRuntime(InterpreterServices& services);

    /// Runs exit handlers and ends CPython. Waits at most two seconds for threads that Python code started
    /// and that are not daemons; while one still runs CPython is left as it is, and a log line says so.
    ~PythonRuntime();
    PythonRuntime(const PythonRuntime&) = delete;
    PythonRuntime& operator=(const PythonRuntime&) = delete;

    /// The module that connects Python code to the host. Borrowed.
    PyObject* runtimeModule() const { return runtimeModule_; }

    /// Makes Python code see the command window's size.
    void setWindow(unsigned long long columns, unsigned long long rows);

private:
    PyObject* runtimeModule_ = nullptr;
};

}  // namespace standalone
