#pragma once

#include <string>

#include "cmddistributor/RuntimeException.h"
#include "python/pythonText.h"

namespace standalone {

class InterpreterServices;

/// CPython, from its start to its end, as a scoped object.
///
/// Threads: made, used and destroyed on the interpreter thread, which holds the interpreter's lock in
/// between.
class PythonRuntime {
public:
    /// Starts CPython with the package `numora` and the host's own module, and redirects its standard streams
    /// to `services`. `virtualEnvironment`: the folder of one, or empty.
    /// Throws: std::runtime_error with CPython's own text, or as `programOf`.
    PythonRuntime(InterpreterServices& services, const std::string& virtualEnvironment);

    /// Has the traces of all threads written to the descriptor when the process crashes, and when SIGRTMIN+1
    /// comes.
    void traceTo(int descriptor);

    /// Runs what Python code registered for the end and waits at most two seconds for its threads. Python
    /// code may still print meanwhile.
    void finish();

    /// Ends CPython. While threads of Python code still run it is left as it is, and a log line says so.
    ~PythonRuntime();
    PythonRuntime(const PythonRuntime&) = delete;
    PythonRuntime& operator=(const PythonRuntime&) = delete;

    /// The module that connects Python code to the host. Borrowed.
    PyObject* runtimeModule() const { return runtimeModule_; }

    /// Makes Python code see the command window's size.
    void setWindow(unsigned long long columns, unsigned long long rows);

    /// After the outermost code: takes away what must not outlive it, a debugger's trace function and a
    /// disposition of SIGINT that would end the process or shut interrupts out.
    void endDebugging();
    void restoreInterrupts();
    /// Makes an error, and the first of the causes at each step, the last one that the interpreter knows of.
    void setLastError(const cmddistributor::RuntimeException& error);
    /// Raises the event of the variables that have changed.
    void announceWorkspace();

private:
    void call(const char* function);

    PyObject* runtimeModule_ = nullptr;
    bool haveThreadsEnded_ = false;
};

}  // namespace standalone
