#pragma once

#include <cstdint>
#include <functional>

#include <sys/types.h>

/// Limits that the system keeps for each process by itself.
///
/// Threads: any, while nobody reaps the process.

namespace supervisor {

/// For a process that has just started: no core file, and the system ends it before this one when memory runs
/// out.
void limitEarly(pid_t pid);

/// Lets the process have so much data in addition to what it has now. Beyond it allocations fail, which code
/// in Python sees as MemoryError.
void limitData(pid_t pid, std::uint64_t memoryMiB);

/// Counts how many processes the system has killed for want of memory, to tell such ends from other uses of
/// SIGKILL.
///
/// The counter is the machine's, so only what it has counted a short while ago is taken for the end of a
/// worker.
///
/// Threads: one at a time.
class OutOfMemoryCounter {
public:
    using Read = std::function<std::uint64_t()>;

    explicit OutOfMemoryCounter(Read read = readSystem)
        : read_(std::move(read)), older_(read_()), newer_(older_) {}

    /// Call this now and then: what was counted before the last call but one is forgotten.
    void forgetOld();
    /// Whether a process has been killed; each is told of once.
    bool take();

private:
    static std::uint64_t readSystem();

    const Read read_;
    std::uint64_t older_;
    std::uint64_t newer_;
};

}  // namespace supervisor
