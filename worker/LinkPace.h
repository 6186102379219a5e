#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>

#include "connector/ThreadSafety.h"
#include "connector/common/RequestOrigin.h"
#include "link/FrameWriter.h"

namespace worker {

/// The pace of a client that is on the other side of the link: it is behind while the gateway says so, and
/// while much waits to be sent.
///
/// Threads: any.  Locks: mutex_, a leaf; a wait releases it.
class LinkPace : public connector::common::ClientPace {
public:
    explicit LinkPace(std::shared_ptr<links::FrameWriter> writer) : writer_(std::move(writer)) {}

    void setBehind(bool isBehind) CONNECTOR_EXCLUDES(mutex_);

    bool isBehind() const override { return isClientBehind() || writer_->queuedBytes() >= mostQueued; }
    void waitUntilCaughtUp(std::chrono::milliseconds limit) override CONNECTOR_EXCLUDES(mutex_);

    bool isClientBehind() const { return isBehind_.load(std::memory_order_relaxed); }

private:
    static constexpr std::size_t mostQueued = std::size_t{1} << 20;

    const std::shared_ptr<links::FrameWriter> writer_;
    std::atomic<bool> isBehind_{false};  // changed under the mutex
    connector::Mutex mutex_;
    std::condition_variable caughtUp_;
};

}  // namespace worker
