#pragma once

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "connector/Promise.h"

namespace connector::interpreter::v1 {

/// The cancellation token of one request that is being handled: through it an interrupt releases the handler.
///
/// Threads: any.
class PendingRequest {
public:
    virtual ~PendingRequest() = default;

    /// Waits for the request's own end, then ends it with "Request interrupted." if it has not come.
    /// Blocks: until `deadline` at most.
    virtual void release(std::chrono::steady_clock::time_point deadline) = 0;

    /// False once the request was released from outside.
    bool isActive() const { return isActive_; }

protected:
    void deactivate() { isActive_ = false; }

private:
    std::atomic<bool> isActive_{true};
};

template <class T>
class PendingPromise : public PendingRequest {
public:
    const std::shared_ptr<connector::Promise<T>>& promise() const { return promise_; }

    void release(std::chrono::steady_clock::time_point deadline) override {
        if (promise_->getState()->waitFor(deadline - std::chrono::steady_clock::now())) return;
        deactivate();
        try {
            promise_->setException(std::make_exception_ptr(std::runtime_error("Request interrupted.")));
        } catch (const std::runtime_error&) {
            // It was resolved in this moment; that result stands.
        }
    }

private:
    const std::shared_ptr<connector::Promise<T>> promise_ = std::make_shared<connector::Promise<T>>();
};

}  // namespace connector::interpreter::v1
