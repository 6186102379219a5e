#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "connector/ThreadSafety.h"

namespace foundation::log {

/// Writes lines to a file descriptor on a thread of its own, so that nobody waits for whoever reads them.
///
/// A MiB of lines may wait. Further ones are counted, as are those that the system does not take, and how
/// many were lost is written in their place. When lines cannot be written, as on a full disk, standard error
/// is told once.
///
/// Writers are never destroyed, because one may hang in a system call when the process ends. That of the
/// process's log is made before any thread. At the end of the process it gets a short time for what waits. A
/// forked child gets a new one, since it has neither this one's thread nor a say in what its mutex guards;
/// what waits is the parent's. Others are for the process that has made them alone.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf, also held while the process forks.
class LineWriter {
public:
    /// The text of the line that says how many were lost.
    using LossNotice = std::function<std::string(std::size_t lost)>;

    static constexpr std::size_t longestLine = std::size_t{16} << 10;

    /// That of the log, which begins with standard error.
    static LineWriter& ofProcess();
    /// One more, which drops lines until it has a descriptor.
    static LineWriter& make() { return *new LineWriter(nullptr); }

    ~LineWriter() = delete;

    /// Adds one line. Control characters and line breaks in it are escaped, and it is cut at `longest` bytes.
    /// Blocks: never.  Throws: std::bad_alloc, std::system_error (the line may be written with a later one).
    void write(std::string_view text, std::size_t longest = longestLine) CONNECTOR_EXCLUDES(mutex_);

    /// Whether everything is written.  Blocks: until then, at most for `limit`.
    bool flush(std::chrono::milliseconds limit) CONNECTOR_EXCLUDES(mutex_);

    /// Writes to a duplicate of `descriptor` from now on.  Blocks: never.
    void setDescriptor(int descriptor) CONNECTOR_EXCLUDES(mutex_);

    /// Replaces "N log lines were lost.". It is called without a lock, on the thread that writes.
    void setLossNotice(LossNotice notice) CONNECTOR_EXCLUDES(mutex_);

private:
    class Descriptor;

    explicit LineWriter(std::shared_ptr<const Descriptor> descriptor) : descriptor_(std::move(descriptor)) {}

    static LineWriter*& instance();
    /// As it was when the process began.
    static const std::shared_ptr<const Descriptor>& standardError();
    static void beforeFork();
    static void afterForkInParent();
    static void afterForkInChild();

    void startLocked() CONNECTOR_REQUIRES(mutex_);
    void run() CONNECTOR_EXCLUDES(mutex_);

    connector::Mutex mutex_;
    std::condition_variable added_;
    std::condition_variable written_;
    std::shared_ptr<const Descriptor> descriptor_ CONNECTOR_GUARDED_BY(mutex_);
    std::shared_ptr<const LossNotice> notice_ CONNECTOR_GUARDED_BY(mutex_);
    std::string pending_ CONNECTOR_GUARDED_BY(mutex_);  // whole lines
    std::size_t lost_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isWriting_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::thread thread_ CONNECTOR_GUARDED_BY(mutex_);  // from the first line on; runs until the process ends
};

}  // namespace foundation::log
