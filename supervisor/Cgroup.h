#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include <sys/types.h>

#include "supervisor/WorkerSpec.h"

namespace supervisor {

/// A worker's own cgroup (version 2): limits for it and its children together, and an end for all of them,
/// also those that left its group.
///
/// Threads: any.  Throws: std::bad_alloc only; what cannot be set is logged.
class Cgroup {
public:
    explicit Cgroup(std::filesystem::path folder) : folder_(std::move(folder)) {}

    void limitEarly(double cpus) const;
    /// To what it has now and a tenth more than `memoryMiB`: the limit of each process comes first, and is an
    /// exception in the code rather than an end.
    void limitMemory(std::uint64_t memoryMiB) const;

    bool add(pid_t pid) const;
    std::uint64_t countOthers(pid_t leader) const;
    void kill() const;
    /// Whether it has reached its limit, or the machine its own, and was ended for that.
    bool wasOutOfMemory() const;

private:
    void set(const char* file, const std::string& value) const;

    const std::filesystem::path folder_;
};

/// The cgroup that the system has given to this process: it moves to `gateway/` within it, and each worker
/// gets a folder of its own beside that.
///
/// Threads: one at a time.
class CgroupTree {
public:
    /// Null where that is not possible: without cgroup v2 or its memory controller, without the right to
    /// write, or where other processes are in the same one.
    static std::unique_ptr<CgroupTree> claim(const std::filesystem::path& folder = ownFolder());

    /// Puts a process into a cgroup of its own; null when that fails.
    std::unique_ptr<Cgroup> make(const WorkerSpec& spec, pid_t pid) const;

private:
    explicit CgroupTree(std::filesystem::path folder) : folder_(std::move(folder)) {}
    static std::filesystem::path ownFolder();

    const std::filesystem::path folder_;
};

}  // namespace supervisor
