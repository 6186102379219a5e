#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "connector/Promise.h"
#include "connector/ThreadSafety.h"
#include "v1/log.h"
#include "zvm/detail.h"

namespace connector::interpreter::v1 {

/// The cancellation token of one request that is being handled: through it an interrupt releases the handler.
///
/// Threads: any.
class PendingRequest : public std::enable_shared_from_this<PendingRequest> {
public:
    virtual ~PendingRequest() = default;

    /// Waits for the request's own end, then ends it with "Request interrupted." if it has not come.
    /// Blocks: until `deadline` at most.
    virtual void release(std::chrono::steady_clock::time_point deadline) = 0;

    /// What the request has in the interpreter's queue: the request proper, then what belongs to it.
    /// Threads: the handling one, before others can find the token, and others afterwards.  Locks: mutex_.
    void setQueued(std::vector<zvm::detail::CmdDistributorTaskReference> tasks) CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        tasks_ = std::move(tasks);
        // Released while it was being queued.
        if (!isActive_) withdrawLocked();
    }

    /// Adds what ends when the code of a request has ended that was not queued to run it.  Locks: mutex_.
    void addQueued(const zvm::detail::CmdDistributorTaskReference& task) CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        tasks_.push_back(task);
    }

    /// Takes the request out of the queue. False when it has begun, or was never queued.
    bool withdraw() CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        isActive_ = false;
        return withdrawLocked();
    }

    /// Whether the request was answered although its code had not ended.
    bool isGivenUp() const CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return isGivenUp_;
    }

    /// For a request that is given up: says in the log that its code goes on, and again when that has ended.
    /// `request` names it there.  Threads: the handling one.
    void logLateEnd(const std::string& request) const CONNECTOR_EXCLUDES(mutex_) {
        auto tasks = queued();
        if (tasks.empty()) return;
        log().warning("The interrupted code is still running: " + request);
        tasks.back().addContinuation([request] { log().info("The interrupted code has ended: " + request); });
    }

protected:
    void setGivenUp(bool isGivenUp) CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        isGivenUp_ = isGivenUp;
    }

private:
    std::vector<zvm::detail::CmdDistributorTaskReference> queued() const CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return tasks_;
    }

    bool withdrawLocked() CONNECTOR_REQUIRES(mutex_) {
        using CancelStatus = zvm::TaskReference::CancelStatus;
        if (tasks_.empty() || tasks_.front().cancel(false) != CancelStatus::Cancelled) return false;
        for (auto& task : tasks_) task.cancel(false);
        return true;
    }

    mutable Mutex mutex_;  // taken before the queue's
    std::vector<zvm::detail::CmdDistributorTaskReference> tasks_ CONNECTOR_GUARDED_BY(mutex_);
    bool isActive_ CONNECTOR_GUARDED_BY(mutex_) = true;
    bool isGivenUp_ CONNECTOR_GUARDED_BY(mutex_) = false;
};

template <class T>
class PendingPromise : public PendingRequest {
public:
    const std::shared_ptr<connector::Promise<T>>& promise() const { return promise_; }

    void release(std::chrono::steady_clock::time_point deadline) override {
        if (promise_->getState()->waitFor(deadline - std::chrono::steady_clock::now())) return;
        setGivenUp(true);  // before the handler wakes and asks
        try {
            promise_->setException(std::make_exception_ptr(std::runtime_error("Request interrupted.")));
        } catch (const std::runtime_error&) {
            setGivenUp(false);  // it was resolved in this moment; that result stands
        }
    }

    /// For a handler that has stopped waiting. Most code that was interrupted ends at once, and is not worth
    /// a word in the log.
    /// Blocks: ten milliseconds at most.
    void giveUp() {
        if (!promise_->getState()->waitFor(std::chrono::milliseconds(10))) setGivenUp(true);
    }

private:
    const std::shared_ptr<connector::Promise<T>> promise_ = std::make_shared<connector::Promise<T>>();
};

}  // namespace connector::interpreter::v1
