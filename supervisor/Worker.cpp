#include "supervisor/Worker.h"

#include <cerrno>
#include <csignal>
#include <ctime>

#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "Cgroup.h"
#include "Limits.h"
#include "pidfd.h"
#include "procfs.h"
#include "remains.h"
#include "signalNames.h"

namespace supervisor {

namespace {

// EX_PROTOCOL: how a worker ends that cannot read or write its sockets, or does not understand what came.
constexpr int linkStatus = 76;

int traceSignal() { return SIGRTMIN + 1; }

std::uint64_t milliseconds(const timeval& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * 1000 + static_cast<std::uint64_t>(time.tv_usec) / 1000;
}

off_t sizeOf(const Descriptor& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 ? status.st_size : 0;
}

}  // namespace

Worker::Worker(WorkerSpec spec, Process process, std::unique_ptr<const Cgroup> cgroup)
    : spec_(std::move(spec)), process_(std::move(process)), cgroup_(std::move(cgroup)) {
    limitEarly(process_.pid);
}

Worker::~Worker() {
    {
        const connector::MutexLock lock(mutex_);
        if (isReaped_) return;
        signalAllLocked();
    }
    // Nobody watches it any more. One that hangs in the system is left to the end of this process.
    pollfd ended{.fd = pidfd(), .events = POLLIN, .revents = 0};
    ::poll(&ended, 1, 1000);
    bury({});
}

void Worker::noteReady() {
    const connector::MutexLock lock(mutex_);
    isReady_ = true;
    if (isReaped_ || spec_.memoryMiB == 0) return;
    limitData(pid(), spec_.memoryMiB);
    if (cgroup_) cgroup_->limitMemory(spec_.memoryMiB);
}

void Worker::expectEnd(std::string_view cause) {
    const connector::MutexLock lock(mutex_);
    if (!cause_.empty()) return;
    cause_ = cause;
    isExpected_ = true;
}

void Worker::kill(std::string_view cause) {
    const connector::MutexLock lock(mutex_);
    if (isReaped_) return;
    // The end of its sockets is seen before its own, and is not why it died.
    if (cause_.empty() && !isEnding(pid())) cause_ = cause;
    signalAllLocked();
}

void Worker::signalAllLocked() {
    // Before they die, but not again when they are dying.
    if (!std::exchange(isKilled_, true))
        childrenKilled_ = cgroup_ ? cgroup_->countOthers(pid()) : countMembers(pid());
    ::kill(-pid(), SIGKILL);
    if (cgroup_) cgroup_->kill();
}

void Worker::requestTrace() {
    const connector::MutexLock lock(mutex_);
    traceBegin_ = traceSize_ = sizeOf(process_.trace);
    ::pidfd_send_signal(pidfd(), traceSignal(), nullptr, 0);
}

bool Worker::hasTrace() {
    const connector::MutexLock lock(mutex_);
    const off_t before = std::exchange(traceSize_, sizeOf(process_.trace));
    return traceSize_ > traceBegin_ && traceSize_ == before;
}

std::uint64_t Worker::memoryBytes() const {
    const connector::MutexLock lock(mutex_);
    return isReaped_ ? 0 : statusBytes(pid(), "VmRSS:");
}

std::uint64_t Worker::processorMs() const {
    const connector::MutexLock lock(mutex_);
    clockid_t clock{};
    timespec used{};
    if (isReaped_ || ::clock_getcpuclockid(pid(), &clock) != 0 || ::clock_gettime(clock, &used) != 0)
        return processorMs_;
    return static_cast<std::uint64_t>(used.tv_sec) * 1000 +
           static_cast<std::uint64_t>(used.tv_nsec) / 1'000'000;
}

std::string_view Worker::limitsEnforcedBy() const {
    if (cgroup_ && (spec_.memoryMiB > 0 || spec_.cpus > 0)) return "cgroup";
    return spec_.memoryMiB > 0 ? "rlimit" : "none";
}

std::optional<DeathRecord> Worker::bury(const std::function<bool()>& takeOutOfMemory) {
    siginfo_t info{};
    const int seen = ::waitid(P_PIDFD, static_cast<id_t>(pidfd()), &info, WEXITED | WNOWAIT | WNOHANG);
    if (seen == 0 && info.si_pid == 0) return std::nullopt;

    DeathRecord record{.interpreter = spec_.id, .life = spec_.life, .pid = pid(), .started = started_};
    record.ended = std::chrono::system_clock::now();
    {
        const connector::MutexLock lock(mutex_);
        if (isReaped_) return std::nullopt;
        // The number is the group's until the process is reaped, and may be another's afterwards.
        signalAllLocked();
        record.childrenKilled = childrenKilled_;
        int status = 0;
        rusage usage{};
        if (::wait4(pid(), &status, 0, &usage) != pid()) status = -1;
        isReaped_ = true;
        record.peakMemoryBytes = static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
        record.processorMs = processorMs_ = milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
        setCauseLocked(record, status, takeOutOfMemory);
    }
    readRemains(process_, record);
    return record;
}

void Worker::setCauseLocked(DeathRecord& record, int status,
                            const std::function<bool()>& takeOutOfMemory) const {
    const bool isKilled = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    // Without a handler for it, a process ends by being asked for a trace.
    const bool isTraced = WIFSIGNALED(status) && WTERMSIG(status) == traceSignal();
    if (WIFSIGNALED(status)) {
        record.detail = signalName(WTERMSIG(status));
        record.cause = cause::signal;
    } else {
        record.detail = "status " + std::to_string(WEXITSTATUS(status));
        record.cause = WEXITSTATUS(status) == linkStatus ? cause::closedTheLink : cause::exitStatus;
    }
    // Who sends a signal is not told afterwards. Whoever ended by another signal, or by itself, was not
    // killed here.
    if (!cause_.empty() && (isKilled || (isExpected_ && (isTraced || WIFEXITED(status)))))
        record.cause = cause_;
    else if (isKilled && ((cgroup_ && cgroup_->wasOutOfMemory()) || (takeOutOfMemory && takeOutOfMemory())))
        record.cause = cause::memory;
    else if (!isReady_)
        record.cause = cause::startFailed;
}

}  // namespace supervisor
