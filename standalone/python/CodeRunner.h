#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include <boost/optional.hpp>

#include "python/PyRef.h"
#include "python/SourceCache.h"
#include "python/errorReport.h"

namespace standalone {

/// Compiles and runs pieces of code in the user's workspace, which is Python's module `__main__`.
///
/// A piece runs in two steps: `execute`, and then, if that failed, `takeError`, which describes the failure
/// and may run code of the user's, too.
///
/// Threads: the interpreter thread with the interpreter's lock.
class CodeRunner {
public:
    enum class Result { Done, Incomplete, Failed };

    /// What a piece of code is. A `Cell` of a notebook may hold magics and commands of the shell, and is an
    /// error where it ends inside an open block.
    enum class Kind { Internal, Plain, Cell };

    /// Code of more than this many UTF-16 code units is refused.
    static constexpr std::size_t codeLimit = 16U << 20U;

    /// `runtimeModule` is the module that describes errors. `beforeRun` is called right before code of the
    /// user's runs: a KeyboardInterrupt that is raised from then on reaches that code.
    /// Throws: std::runtime_error.
    CodeRunner(PyObject* runtimeModule, std::function<void()> beforeRun);

    /// Runs `code` and displays the value of its last statement if that is an expression with no semicolon
    /// after it. An `await` outside of functions waits in a loop of this workspace's. The code becomes part
    /// of the history unless it is internal.
    Result execute(const std::u16string& code, Kind kind);
    /// After a cell and the report of its error: shows the figures that it has left open.
    void endCell(bool isError);

    /// The number of the next piece, which is in the history and in the name of its file.
    std::uint64_t nextNumber() const { return count_ + 1; }

    /// What made the last `execute` fail. Empty when the code ended itself in an orderly way.
    boost::optional<CodeError> takeError();

    /// False when `code` ends inside an open block.
    bool isComplete(const std::u16string& code);

    /// Ends a process that code of the last `execute` forked: prints its error and exits with its status.
    [[noreturn]] void exitForkedChild();

private:
    enum class Mode { Simple, Tree };

    /// A piece of code on its way; of `simple` and `tree` one is there when it could be compiled.
    struct Piece {
        std::u16string code;
        PyRef source;
        PyRef fileName;
        PyRef simple = PyRef();
        PyRef tree = PyRef();
    };

    PyRef nameFile(PyObject* source, Kind kind);
    bool compile(Piece& piece);
    bool compileAsCell(Piece& piece);
    PyRef compileSource(const std::u16string& code, PyObject* source, PyObject* fileName, Mode mode);
    PyRef compileTree(PyObject* tree, PyObject* fileName, const char* mode);
    bool runTree(PyObject* tree, PyObject* source, PyObject* fileName, bool& isSourceWanted);
    bool runCode(PyObject* code, bool& isSourceWanted);
    bool runInOneLoop(PyObject* statements, PyObject* expression, bool& isSourceWanted);
    Result failed();

    const std::function<void()> beforeRun_;
    const PyRef runtimeModule_;
    const PyRef mainModule_;  // held, because code may take it out of sys.modules
    PyObject* const globals_;
    const PyRef report_;
    const PyRef remember_;
    const PyRef runCoroutine_;
    const PyRef runInLoop_;
    const PyRef compile_;
    const PyRef expressionType_;
    const PyRef interactiveType_;
    SourceCache sources_;
    PyRef error_;
    std::uint64_t count_ = 0;
    int futureFlags_ = 0;
};

}  // namespace standalone
