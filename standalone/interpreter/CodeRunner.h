#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include <boost/optional.hpp>

#include "cmddistributor/RuntimeException.h"
#include "interpreter/pythonText.h"

namespace standalone {

/// An error that ended a piece of code, as it is to be reported.
struct CodeError {
    cmddistributor::RuntimeException exception;
    boost::optional<std::u16string> suggestion;
};

/// Compiles and runs pieces of code in the user's workspace, which is Python's module `__main__`.
///
/// A piece runs in two steps: `execute`, and then, if that failed, `takeError`, which describes the failure;
/// an interrupt that is meant for the code must not reach the description.
///
/// Threads: the interpreter thread with the interpreter's lock.
class CodeRunner {
public:
    enum class Result { Done, Incomplete, Failed };

    /// Code of more than this many UTF-16 code units is refused.
    static constexpr std::size_t codeLimit = 16U << 20U;

    /// `runtimeModule` is the module that describes errors.  Throws: std::runtime_error.
    explicit CodeRunner(PyObject* runtimeModule);
    ~CodeRunner();
    CodeRunner(const CodeRunner&) = delete;
    CodeRunner& operator=(const CodeRunner&) = delete;

    /// Runs `code` and displays the value of its last statement if that is an expression.
    Result execute(const std::u16string& code);

    /// What made the last `execute` fail. Empty when the code ended itself in an orderly way.
    boost::optional<CodeError> takeError();

    /// False when `code` ends inside an open block.
    bool isComplete(const std::u16string& code);

private:
    class Ref;

    Result failed();
    Ref compileSource(const std::u16string& code, PyObject* source, PyObject* fileName, int start,
                      int extraFlags);
    bool runTree(PyObject* tree, PyObject* fileName);
    bool runPart(PyObject* tree, PyObject* fileName, const char* mode);
    bool runCode(PyObject* code);
    void rememberSource(PyObject* source, PyObject* fileName);
    void forgetSource(PyObject* fileName);
    boost::optional<CodeError> describe(PyObject* error);

    PyObject* globals_ = nullptr;  // borrowed: the workspace lives as long as Python
    PyObject* report_ = nullptr;   // owned, as are those below
    PyObject* compile_ = nullptr;
    PyObject* expressionType_ = nullptr;
    PyObject* interactiveType_ = nullptr;
    PyObject* sourceCache_ = nullptr;
    PyObject* error_ = nullptr;

    std::uint64_t count_ = 0;
    int futureFlags_ = 0;
    bool definesFunctions_ = false;
    std::deque<PyObject*> keptSources_;  // owned file names whose source stays for tracebacks, oldest first
};

}  // namespace standalone
