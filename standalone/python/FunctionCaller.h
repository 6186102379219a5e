#pragma once

#include <string>
#include <vector>

#include "cmddistributor/IIP.h"
#include "matrix/mxArray.h"
#include "python/PyRef.h"

namespace standalone {

/// Calls functions by name: with arrays, or, through the internal function "connector.internal.fevalJSON",
/// with JSON arguments and JSON results.
///
/// Threads: the interpreter thread with the interpreter's lock.
class FunctionCaller {
public:
    /// `runtimeModule` is the module that describes errors.  Throws: std::runtime_error.
    explicit FunctionCaller(PyObject* runtimeModule);

    /// Runs the request. The internal function is given the name of the function to call, the number of
    /// results and one JSON text for each argument; it returns one struct with the fields "results", "error"
    /// and "faultMessage", and "faultId" for an error that has an identifier of its own. Any other function,
    /// named as there, is given the arrays as arrayValues.h says, and returns `nargout` arrays. Throws:
    /// cmddistributor::RuntimeException, when the function fails or an argument or a result cannot be passed.
    std::vector<matrix::ArrayPtr> call(const cmddistributor::FEvalIIP& iip);

    /// The call as a person would write it, the first `most` UTF-16 code units of it.  Threads: any; no lock.
    static std::u16string textOf(const cmddistributor::FEvalIIP& iip, std::size_t most);

private:
    std::vector<matrix::ArrayPtr> callThroughJson(const cmddistributor::FEvalIIP::Data& data);
    std::vector<matrix::ArrayPtr> callWithArrays(const std::string& name,
                                                 const cmddistributor::FEvalIIP& iip);
    /// Loads what calls are made with, once, with the first of them: programs that make none start faster.
    /// False with a Python exception set.
    bool load();
    /// What a failed call answers, from the Python exception that is set, which is cleared.
    std::vector<matrix::ArrayPtr> failed();

    const PyRef report_;
    PyRef call_;  // null until it is loaded, as are the others
    PyRef callWithValues_;
    PyRef message_;
};

}  // namespace standalone
