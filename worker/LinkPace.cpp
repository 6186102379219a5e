#include "LinkPace.h"

#include "connector/detail/SharedFutureState.h"

namespace worker {

using connector::MutexLock;

void LinkPace::setBehind(bool isBehind) {
    {
        const MutexLock lock(mutex_);
        isBehind_ = isBehind;
    }
    caughtUp_.notify_all();
}

void LinkPace::waitUntilCaughtUp(std::chrono::milliseconds limit) {
    const auto deadline = connector::detail::deadlineAfter(limit);
    {
        MutexLock lock(mutex_);
        while (isBehind_) {
            if (caughtUp_.wait_until(lock.native(), deadline) == std::cv_status::timeout) return;
        }
    }
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left > milliseconds(0)) writer_->waitUntilBelow(mostQueued, left);
}

}  // namespace worker
