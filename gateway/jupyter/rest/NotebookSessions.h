#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "connector/ThreadSafety.h"

namespace gateway::jupyter {

/// That a document of a front end is worked on with a kernel.
struct Session {
    std::string id;
    std::string path;
    std::string name;
    std::string type;
    std::string kernel;  ///< its id
};

/// The sessions of front ends, in memory. Of more than `most`, the oldest are forgotten: their kernels run
/// on.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf.
class NotebookSessions {
public:
    static constexpr std::size_t most = 1000;
    using Sessions = std::deque<Session>;

    /// The oldest first.
    Sessions all() const CONNECTOR_EXCLUDES(mutex_);
    /// Adds it, or puts it in the place of the one with its id.
    void put(Session session) CONNECTOR_EXCLUDES(mutex_);
    void erase(std::string_view id) CONNECTOR_EXCLUDES(mutex_);

    std::chrono::system_clock::time_point begin() const { return begin_; }

private:
    const std::chrono::system_clock::time_point begin_ = std::chrono::system_clock::now();
    mutable connector::Mutex mutex_;
    Sessions sessions_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway::jupyter
