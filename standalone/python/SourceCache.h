#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "python/PyRef.h"

namespace standalone {

/// The source lines of evaluated code, kept where tracebacks, the debugger and the module inspect look for
/// them: in the cache of the module linecache. The oldest are dropped beyond 2,000 pieces or 16 Mi UTF-16
/// code units.
///
/// Threads: the interpreter thread with the interpreter's lock.
class SourceCache {
public:
    /// Throws: std::runtime_error, when Python lacks the module.
    SourceCache();

    /// Adds the source of a piece of code. Its lines end where Python's do.
    void add(const std::u16string& code, PyObject* fileName);
    /// Drops it again, unless it may be wanted after its run.
    void keepOrDrop(const std::u16string& code, PyObject* fileName, bool isWanted);

private:
    struct Kept {
        PyRef fileName;
        std::size_t size;
    };

    void drop(PyObject* fileName);

    PyRef cache_;
    std::deque<Kept> kept_;  // oldest first
    std::size_t keptSize_ = 0;
};

}  // namespace standalone
