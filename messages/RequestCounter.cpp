#include "messages/RequestCounter.h"

namespace messages {

RequestCounter::Counts& RequestCounter::countsOfLocked(const std::string& clientType) {
    const auto found = counts_.find(clientType);
    if (found != counts_.end()) return found->second;
    return counts_[counts_.size() < mostTypes ? clientType : "other"];
}

connector::Future<void> RequestCounter::requestStarted(
    const std::string& clientType, const std::shared_ptr<connector::common::ContextState>& /*context*/) {
    {
        connector::MutexLock lock(mutex_);
        ++countsOfLocked(clientType).started;
        ++underWay_;
    }
    return connector::makeReadyFuture();
}

connector::Future<void> RequestCounter::requestEnded(
    const std::string& clientType, const std::shared_ptr<connector::common::ContextState>& /*context*/) {
    {
        connector::MutexLock lock(mutex_);
        ++countsOfLocked(clientType).ended;
        if (underWay_ > 0) --underWay_;
    }
    ended_.notify_all();
    return connector::makeReadyFuture();
}

std::map<std::string, RequestCounter::Counts> RequestCounter::counts() const {
    connector::MutexLock lock(mutex_);
    return counts_;
}

bool RequestCounter::waitUntilIdle(std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    connector::MutexLock lock(mutex_);
    while (underWay_ > 0) {
        if (ended_.wait_until(lock.native(), deadline) == std::cv_status::timeout) return underWay_ == 0;
    }
    return true;
}

}  // namespace messages
