#define PY_SSIZE_T_CLEAN
#include "python/PythonRuntime.h"

#include <stdexcept>
#include <string>

#include <Python.h>

#include "foundation/log/diagnostic_logger.h"
#include "python/HostModule.h"
#include "python/InterpreterServices.h"
#include "python/PyRef.h"
#include "python/frozenModules.h"
#include "standalone/virtualEnvironment.h"

namespace standalone {

namespace {

void check(const PyStatus& status, PyConfig& config) {
    if (PyStatus_Exception(status) == 0) return;
    PyConfig_Clear(&config);
    throw std::runtime_error(std::string("CPython cannot be started: ") +
                             (status.err_msg != nullptr ? status.err_msg : "unknown error"));
}

void initialise(const std::string& program) {
    PyConfig config;
    PyConfig_InitPythonConfig(&config);
    config.parse_argv = 0;
    config.install_signal_handlers = 1;
    config.buffered_stdio = 1;
    // CPython finds its library and packages beside this program, whatever python3 comes first on the PATH.
    check(PyConfig_SetBytesString(&config, &config.program_name, program.c_str()), config);
    check(PyConfig_SetBytesString(&config, &config.executable, program.c_str()), config);
    check(Py_InitializeFromConfig(&config), config);
    PyConfig_Clear(&config);
}

std::runtime_error pythonFailure(const std::string& what) {
    PyErr_Print();  // to the standard error that the process still has
    return std::runtime_error(what);
}

void callMethod(PyObject* module, const char* name) {
    PyObject* result = PyObject_CallMethod(module, name, nullptr);
    if (result == nullptr) throw pythonFailure(std::string("The Python function ") + name + " failed.");
    Py_DECREF(result);
}

}  // namespace

PythonRuntime::PythonRuntime(InterpreterServices& services, const std::string& virtualEnvironment) {
    const std::string program =
        virtualEnvironment.empty() ? NUMORA_PYTHON_PROGRAM : programOf(virtualEnvironment);
    hostmodule::registerModule();
    PyImport_FrozenModules = frozenModules;
    initialise(program);
    hostmodule::bind(&services);
    runtimeModule_ = PyImport_ImportModule("numora._runtime");
    if (runtimeModule_ == nullptr) throw pythonFailure("The Python package numora cannot be loaded.");
    Py_DECREF(runtimeModule_);  // sys.modules holds it
    callMethod(runtimeModule_, "start");
    PyRun_SimpleString("import sys\nsys.argv = ['']\nsys.path.insert(0, '')\ndel sys");
}

void PythonRuntime::finish() {
    PyObject* haveEnded = PyObject_CallMethod(runtimeModule_, "end", "d", 2.0);
    haveThreadsEnded_ = haveEnded == Py_True;
    Py_XDECREF(haveEnded);
    PyErr_Clear();
}

PythonRuntime::~PythonRuntime() {
    hostmodule::bind(nullptr);
    if (haveThreadsEnded_) {
        // The user's objects go while the modules that they need are still there.
        PyDict_Clear(PyModule_GetDict(PyImport_AddModule("__main__")));
        Py_FinalizeEx();
    } else {
        foundation::log::DiagnosticLogger("standalone::python")
            .warning("Threads of Python code are still running at the end.");
        PyEval_SaveThread();
    }
}

void PythonRuntime::call(const char* function) {
    PyObject* result = PyObject_CallMethod(runtimeModule_, function, nullptr);
    if (result == nullptr) {
        foundation::log::DiagnosticLogger("standalone::python")
            .warning(std::string("The Python function ") + function + " failed.");
    }
    Py_XDECREF(result);
    PyErr_Clear();
}

void PythonRuntime::endDebugging() {
    PyObject* tracer = PyThreadState_Get()->c_traceobj;
    if (tracer == nullptr) return;
    PyObject* debugger = PyObject_GetAttrString(tracer, "__self__");
    const bool isDebugger = debugger != nullptr && PyObject_HasAttrString(debugger, "set_continue") != 0;
    Py_XDECREF(debugger);
    PyErr_Clear();
    if (isDebugger) PyEval_SetTrace(nullptr, nullptr);
}

void PythonRuntime::setLastError(const cmddistributor::RuntimeException& error) {
    const PyRef errors(PyList_New(0));
    const auto* next = &error;
    while (errors && next != nullptr) {
        const PyRef message(pythonText(next->getMessage()));
        const PyRef entry(message ? Py_BuildValue("(sO)", next->GetID().c_str(), message.get()) : nullptr);
        if (!entry || PyList_Append(errors.get(), entry.get()) != 0) break;
        next = next->getCauses().empty() ? nullptr : &next->getCauses().front();
    }
    const PyRef done(errors ? PyObject_CallMethod(runtimeModule_, "set_last_error", "O", errors.get())
                            : nullptr);
    PyErr_Clear();
}

void PythonRuntime::announceWorkspace() { call("announce_workspace"); }

void PythonRuntime::restoreInterrupts() { call("restore_interrupts"); }

void PythonRuntime::traceTo(int descriptor) {
    PyObject* result = PyObject_CallMethod(runtimeModule_, "trace_to", "i", descriptor);
    if (result == nullptr) throw pythonFailure("The traces of Python cannot be kept.");
    Py_DECREF(result);
}

void PythonRuntime::setWindow(unsigned long long columns, unsigned long long rows) {
    PyObject* result = PyObject_CallMethod(runtimeModule_, "set_window", "KK", columns, rows);
    Py_XDECREF(result);
    PyErr_Clear();
}

}  // namespace standalone
