#pragma once

#include <fstream>
#include <string_view>

#include "connector/ThreadSafety.h"

namespace connector::interpreter::v1 {

/// A copy of all text that is printed, in the file that the environment variable
/// NUFULLSTACK_TEST_CONTAINER_LOG names. Without it there is none. That the file cannot be opened or written
/// is logged and stops nothing.
///
/// Threads: any; pieces of several threads stay whole.  Locks: mutex_, a leaf.
class OutputLog {
public:
    OutputLog() noexcept;

    /// Appends `text` at once.  Throws: std::bad_alloc.
    void write(std::u16string_view text) CONNECTOR_EXCLUDES(mutex_);
    void close() CONNECTOR_EXCLUDES(mutex_);

private:
    bool isEnabled_ = false;  ///< fixed after construction
    Mutex mutex_;
    std::ofstream file_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace connector::interpreter::v1
