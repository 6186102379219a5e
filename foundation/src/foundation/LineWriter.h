#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "connector/ThreadSafety.h"

namespace foundation::log {

/// Writes lines to a file descriptor on a thread of its own, so that nobody waits for whoever reads them.
///
/// A MiB of lines may wait. Further ones are counted, and how many were lost is written in their place.
///
/// There is one writer, made before any thread and never destroyed. At the end of the process it gets a short
/// time for what waits. A forked child gets a new one, since it has neither this one's thread nor a say in
/// what its mutex guards; what waits is the parent's.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf, also held while the process forks.
class LineWriter {
public:
    static LineWriter& ofProcess();

    /// Adds one line. Control characters and line breaks in it are escaped, and it is cut at 16 KiB.
    /// Blocks: never.  Throws: std::bad_alloc, std::system_error (the line may be written with a later one).
    void write(std::string_view text) CONNECTOR_EXCLUDES(mutex_);

    /// Whether everything is written.  Blocks: until then, at most for `limit`.
    bool flush(std::chrono::milliseconds limit) CONNECTOR_EXCLUDES(mutex_);

    /// Writes to a duplicate of `descriptor` from now on, at first to one of standard error.  Blocks: never.
    void setDescriptor(int descriptor) CONNECTOR_EXCLUDES(mutex_);

private:
    class Descriptor;

    explicit LineWriter(std::shared_ptr<const Descriptor> descriptor) : descriptor_(std::move(descriptor)) {}

    static LineWriter*& instance();
    static void beforeFork();
    static void afterForkInParent();
    static void afterForkInChild();

    void startLocked() CONNECTOR_REQUIRES(mutex_);
    void run() CONNECTOR_EXCLUDES(mutex_);

    connector::Mutex mutex_;
    std::condition_variable added_;
    std::condition_variable written_;
    std::shared_ptr<const Descriptor> descriptor_ CONNECTOR_GUARDED_BY(mutex_);
    std::string pending_ CONNECTOR_GUARDED_BY(mutex_);  // whole lines
    std::size_t lost_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isWriting_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::thread thread_ CONNECTOR_GUARDED_BY(mutex_);  // from the first line on; runs until the process ends
};

}  // namespace foundation::log
