#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "connector/ThreadSafety.h"
#include "supervisor/DeathRecord.h"
#include "supervisor/Descriptor.h"
#include "supervisor/WorkerSpec.h"

namespace supervisor {

class Cgroup;

/// A process that was just started, and this side of what it inherited. All are close-on-exec.
struct Process {
    pid_t pid = 0;
    Descriptor pidfd{};
    Descriptor mainSocket{};
    Descriptor controlSocket{};
    Descriptor blackBox{};
    Descriptor trace{};
    Descriptor output{};  ///< read end of the pipe of standard output; the worker has it too
    Descriptor errors{};  ///< the same of standard error
};

/// A worker process, from its start until it is reaped.
///
///     starting -- noteReady() --> ready        both -- ends, or kill() --> dead -- bury() --> reaped
///
/// A dead process holds its number, and so that of its group, until it is reaped: signals are sent under the
/// mutex under which it is reaped, so that none reaches a stranger who got the number afterwards.
///
/// Threads: every operation from any thread, bury() from the supervisor's.  Locks: mutex_, a leaf, held for a
/// few system calls, at most while /proc is read.
class Worker {
public:
    /// `cgroup` is null where there is none.
    Worker(WorkerSpec spec, Process process, std::unique_ptr<const Cgroup> cgroup);
    /// Kills and reaps a process that nobody has buried.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    const WorkerSpec& spec() const { return spec_; }
    int pid() const { return process_.pid; }
    /// Non-blocking; closed with this object.
    int mainSocket() const { return process_.mainSocket.get(); }
    int controlSocket() const { return process_.controlSocket.get(); }

    /// The worker is ready: its memory is limited from now on, to what it has plus `memoryMiB`. An end before
    /// is a failed start.
    void noteReady() CONNECTOR_EXCLUDES(mutex_);

    /// An end from now on is what somebody asked for: `cause` (see DeathRecord.h) is that of the record,
    /// unless the process ends by a signal other than SIGKILL and that for a trace. Call this before asking
    /// it.
    void expectEnd(std::string_view cause) CONNECTOR_EXCLUDES(mutex_);

    /// Sends SIGKILL to the process, its group and its cgroup. `cause` is that of the record unless the
    /// process had ended by itself before, or an earlier one was given. May be repeated.  Blocks: never.
    void kill(std::string_view cause) CONNECTOR_EXCLUDES(mutex_);

    /// Has the process write where its threads are (SIGRTMIN+1).
    void requestTrace() CONNECTOR_EXCLUDES(mutex_);
    /// Whether a trace has come since requestTrace(), and nothing was added to it since the last look.
    bool hasTrace() CONNECTOR_EXCLUDES(mutex_);

    std::uint64_t memoryBytes() const CONNECTOR_EXCLUDES(mutex_);  ///< resident now; 0 when dead
    std::uint64_t processorMs() const CONNECTOR_EXCLUDES(mutex_);  ///< until now, or until its end
    /// "cgroup", "rlimit" (memory alone, of each process by itself) or "none".
    std::string_view limitsEnforcedBy() const;

    int pidfd() const { return process_.pidfd.get(); }

    /// If the process has ended: kills what is left of its group and cgroup, reaps it, reads all that it left
    /// but the sockets, and returns the record, without `inFlight`; once. Otherwise nothing.
    /// `takeOutOfMemory` says whether the system has just killed some process for want of memory; it is asked
    /// when SIGKILL is explained by nothing else. May be null.
    std::optional<DeathRecord> bury(const std::function<bool()>& takeOutOfMemory) CONNECTOR_EXCLUDES(mutex_);

private:
    void signalAllLocked() CONNECTOR_REQUIRES(mutex_);
    void setCauseLocked(DeathRecord& record, int status, const std::function<bool()>& takeOutOfMemory) const
        CONNECTOR_REQUIRES(mutex_);

    const WorkerSpec spec_;
    const Process process_;
    const std::unique_ptr<const Cgroup> cgroup_;
    const std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();

    mutable connector::Mutex mutex_;
    bool isReaped_ CONNECTOR_GUARDED_BY(mutex_) = false;
    bool isReady_ CONNECTOR_GUARDED_BY(mutex_) = false;
    bool isKilled_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::uint64_t childrenKilled_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isExpected_ CONNECTOR_GUARDED_BY(mutex_) =
        false;                                        ///< cause_ was given before the process was to end
    std::string cause_ CONNECTOR_GUARDED_BY(mutex_);  ///< the first that was given
    std::uint64_t processorMs_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    off_t traceSize_ CONNECTOR_GUARDED_BY(mutex_) = 0;   ///< at the last look
    off_t traceBegin_ CONNECTOR_GUARDED_BY(mutex_) = 0;  ///< at the last request
};

}  // namespace supervisor
