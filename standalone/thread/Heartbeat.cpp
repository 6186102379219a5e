#include "thread/Heartbeat.h"

#include <utility>

#include "python/interpreterLock.h"

namespace standalone {

using connector::MutexLock;

std::chrono::milliseconds Heartbeat::deafFor() {
    const auto now = Clock::now();
    const MutexLock lock(mutex_);
    if (isStopped_) return {};
    if (!std::exchange(isAsked_, true)) {
        since_ = now;
        if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
        asked_.notify_one();
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(now - since_);
}

void Heartbeat::run() {
    MutexLock lock(mutex_);
    for (;;) {
        while (!isAsked_ && !isStopped_) asked_.wait(lock.native());
        if (isStopped_) return;
        lock.unlock();
        withInterpreterLock([] {});
        lock.lock();
        isAsked_ = false;
    }
}

void Heartbeat::stop() {
    std::thread thread;
    {
        const MutexLock lock(mutex_);
        isStopped_ = true;
        thread.swap(thread_);
    }
    asked_.notify_one();
    if (thread.joinable()) thread.join();
}

}  // namespace standalone
