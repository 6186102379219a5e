#include "standalone/RequestCounter.h"

namespace standalone {

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
    }
    return connector::makeReadyFuture();
}

connector::Future<void> RequestCounter::requestEnded(
    const std::string& clientType, const std::shared_ptr<connector::common::ContextState>& /*context*/) {
    {
        connector::MutexLock lock(mutex_);
        ++countsOfLocked(clientType).ended;
    }
    return connector::makeReadyFuture();
}

std::map<std::string, RequestCounter::Counts> RequestCounter::counts() const {
    connector::MutexLock lock(mutex_);
    return counts_;
}

}  // namespace standalone
