#include "Limits.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/resource.h>

#include "log.h"
#include "procfs.h"

namespace supervisor {

namespace {

void warnUnless(bool isDone, const char* what) {
    if (!isDone) log().warning(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace

void limitEarly(pid_t pid) {
    const rlimit none{0, 0};
    warnUnless(::prlimit(pid, RLIMIT_CORE, &none, nullptr) == 0, "a worker may write core files");
    // Relative to this process, whose own value may be above 0 already.
    const int own = std::atoi(readText("/proc/self/oom_score_adj").c_str());
    errno = writeText("/proc/" + std::to_string(pid) + "/oom_score_adj",
                      std::to_string(std::min(own + 300, 1000)));
    warnUnless(errno == 0, "a worker is not preferred when memory runs out");
}

void limitData(pid_t pid, std::uint64_t memoryMiB) {
    rlimit limit{};
    if (::prlimit(pid, RLIMIT_DATA, nullptr, &limit) != 0) return warnUnless(false, "memory is not limited");
    const rlim_t wanted = statusBytes(pid, "VmData:") + (memoryMiB << 20);
    limit.rlim_cur = limit.rlim_max = std::min(limit.rlim_max, wanted);
    warnUnless(::prlimit(pid, RLIMIT_DATA, &limit, nullptr) == 0, "memory is not limited");
}

void OutOfMemoryCounter::forgetOld() {
    older_ = std::max(older_, newer_);
    newer_ = read_();
}

bool OutOfMemoryCounter::take() {
    if (read_() <= older_) return false;
    ++older_;
    return true;
}

std::uint64_t OutOfMemoryCounter::readSystem() { return numberAfter(readText("/proc/vmstat"), "oom_kill"); }

}  // namespace supervisor
