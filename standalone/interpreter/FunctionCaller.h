#pragma once

#include <vector>

#include "cmddistributor/FEvalIIP.h"
#include "interpreter/PyRef.h"
#include "matrix/mxArray.h"

namespace standalone {

/// Calls functions by name with JSON arguments and JSON results, which is what the internal function
/// "connector.internal.fevalJSON" does.
///
/// Threads: the interpreter thread with the interpreter's lock.
class FunctionCaller {
public:
    /// `runtimeModule` is the module that finds and calls the functions.  Throws: std::runtime_error.
    explicit FunctionCaller(PyObject* runtimeModule);

    /// Runs the request, whose arguments are the name of the function to call, the number of results and one
    /// JSON text for each argument. Returns one struct with the fields "results", "error", "faultMessage" and
    /// "faultId", the identifier of an error that has one of its own.
    /// Throws: cmddistributor::RuntimeException, for another internal function or other arguments.
    std::vector<matrix::ArrayPtr> call(const cmddistributor::FEvalIIP& iip);

private:
    /// What a failed call answers, from the Python exception that is set, which is cleared.
    std::vector<matrix::ArrayPtr> failed();

    const PyRef call_;
    const PyRef message_;
};

}  // namespace standalone
