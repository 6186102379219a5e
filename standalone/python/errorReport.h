#pragma once

#include <string>

#include <boost/optional.hpp>

#include "cmddistributor/RuntimeException.h"
#include "python/PyRef.h"

namespace standalone {

/// An error that ended a piece of code, as it is to be reported.
struct CodeError {
    cmddistributor::RuntimeException exception;
    boost::optional<std::u16string> suggestion;
    /// The builtin function in which it arose, and whether that belongs to a compiled extension.
    boost::optional<std::string> builtin;
    bool isInCompiledExtension = false;
};

/// Describes a Python exception with the help of the function `report` of the runtime module. Empty when it
/// stands for an orderly end. An exception that cannot even be described is reported by the name of its type.
/// Threads: the interpreter thread with the interpreter's lock; runs Python code.
boost::optional<CodeError> describeError(PyObject* report, PyObject* error);

}  // namespace standalone
