#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "connector/ThreadSafety.h"
#include "connector/common/requests.h"

namespace messages {

/// Counts streaming requests by the type of their client, for the metrics.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf.
class RequestCounter : public connector::common::RequestTracker {
public:
    struct Counts {
        std::uint64_t started = 0;
        std::uint64_t ended = 0;
    };
    /// So many types are told apart; those that come later count together, as "other".
    static constexpr std::size_t mostTypes = 100;

    connector::Future<void> requestStarted(
        const std::string& clientType,
        const std::shared_ptr<connector::common::ContextState>& context) override CONNECTOR_EXCLUDES(mutex_);
    connector::Future<void> requestEnded(
        const std::string& clientType,
        const std::shared_ptr<connector::common::ContextState>& context) override CONNECTOR_EXCLUDES(mutex_);

    std::map<std::string, Counts> counts() const CONNECTOR_EXCLUDES(mutex_);

    /// Waits until every request that was started has ended; false when that takes longer.
    bool waitUntilIdle(std::chrono::milliseconds limit) const CONNECTOR_EXCLUDES(mutex_);

private:
    Counts& countsOfLocked(const std::string& clientType) CONNECTOR_REQUIRES(mutex_);

    mutable connector::Mutex mutex_;
    mutable std::condition_variable ended_;
    std::uint64_t underWay_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::map<std::string, Counts> counts_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace messages
