#include "messages/HandlerGate.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "connector/ThreadSafety.h"
#include "foundation/log/diagnostic_logger.h"

namespace messages {

namespace {

struct Run {
    const HandlerGate* gate;
    std::thread::id thread;
};

// Who is inside which gate and who waits for whom, of the whole process, because a circle of waiting threads
// may lead through any gates. A wait that would close a circle does not begin, so there is never one.
struct Runs {
    connector::Mutex mutex;
    std::condition_variable ended;
    std::uint64_t last CONNECTOR_GUARDED_BY(mutex) = 0;
    std::map<std::uint64_t, Run> running CONNECTOR_GUARDED_BY(mutex);
    std::map<std::thread::id, std::vector<std::uint64_t>> awaited CONNECTOR_GUARDED_BY(mutex);

    bool waitsForLocked(std::thread::id thread, std::thread::id other) CONNECTOR_REQUIRES(mutex) {
        if (thread == other) return true;
        const auto waits = awaited.find(thread);
        if (waits == awaited.end()) return false;
        for (const auto number : waits->second) {
            const auto run = running.find(number);
            if (run != running.end() && waitsForLocked(run->second.thread, other)) return true;
        }
        return false;
    }

    bool haveEndedLocked(const std::vector<std::uint64_t>& numbers) CONNECTOR_REQUIRES(mutex) {
        for (const auto number : numbers) {
            if (running.contains(number)) return false;
        }
        return true;
    }
};

Runs& runs() {
    static Runs instance;
    return instance;
}

thread_local int depth = 0;

}  // namespace

void callAndLog(const std::function<void()>& call) {
    const foundation::log::DiagnosticLogger log("standalone::messages");
    try {
        call();
    } catch (const std::exception& error) {
        log.error("A handler of messages failed: " + std::string(error.what()));
    } catch (...) {
        log.error("A handler of messages failed");
    }
}

bool HandlerGate::isInHandler() { return depth > 0; }

void HandlerGate::run(const std::function<void()>& call) {
    auto& all = runs();
    std::uint64_t number = 0;
    {
        connector::MutexLock lock(all.mutex);
        if (isEnded_) return;
        number = ++all.last;
        all.running.emplace(number, Run{this, std::this_thread::get_id()});
    }
    ++depth;
    callAndLog(call);
    --depth;
    connector::MutexLock lock(all.mutex);
    all.running.erase(number);
    if (!all.awaited.empty()) all.ended.notify_all();
}

void HandlerGate::end() {
    auto& all = runs();
    const auto self = std::this_thread::get_id();
    connector::MutexLock lock(all.mutex);
    isEnded_ = true;
    std::vector<std::uint64_t> others;
    for (const auto& [number, run] : all.running) {
        if (run.gate == this && !all.waitsForLocked(run.thread, self)) others.push_back(number);
    }
    if (others.empty()) return;
    all.awaited.emplace(self, others);
    while (!all.haveEndedLocked(others)) all.ended.wait(lock.native());
    all.awaited.erase(self);
}

}  // namespace messages
