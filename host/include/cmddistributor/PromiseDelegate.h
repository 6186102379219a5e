#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "cmddistributor/IIPResult.h"
#include "connector/Promise.h"

namespace cmddistributor {

/// Through it a queued request reports that it has ended. The host calls `complete` once.
///
/// Threads: `complete` from the interpreter thread or, for a request that never began, from the thread that
/// took it back; the others from any thread.
class PromiseDelegate {
public:
    virtual ~PromiseDelegate() = default;

    virtual void complete(const IIPResult& result) noexcept = 0;

    /// Blocks: until the promise is resolved, without a time limit.
    virtual void waitTillReady() = 0;
    virtual bool isPromiseDone() const = 0;

protected:
    /// True to the first caller alone, which then completes the promise.
    bool tryRunTask() { return !taken_.exchange(true); }

private:
    std::atomic<bool> taken_{false};
};

/// Completes a promise: with the failure that the result carries, else with what `extract` makes of the
/// result. Without `extract` a successful end leaves the promise to whoever resolves it otherwise. A promise
/// that is resolved already stays as it is.
template <class T>
class PromiseDelegateT : public PromiseDelegate {
public:
    using Extract = std::function<T(const IIPResult&)>;

    explicit PromiseDelegateT(std::shared_ptr<connector::Promise<T>> promise, Extract extract = nullptr)
        : promise_(std::move(promise)), state_(promise_->getState()), extract_(std::move(extract)) {}

    void complete(const IIPResult& result) noexcept override {
        if (!tryRunTask() || isPromiseDone()) return;
        try {
            resolve(result);
        } catch (...) {
            // Somebody else resolved the promise between the question and the answer, and was first.
        }
    }
    void waitTillReady() override { state_->waitUntilResolved(); }
    bool isPromiseDone() const override { return state_->isResolved(); }

private:
    void resolve(const IIPResult& result) {
        if (result.exception()) {
            promise_->setException(std::make_exception_ptr(*result.exception()));
        } else if (extract_) {
            try {
                resolveWithValue(result);
            } catch (...) {
                promise_->setException(std::current_exception());
            }
        }
    }
    void resolveWithValue(const IIPResult& result) {
        if constexpr (std::is_void_v<T>) {
            extract_(result);
            promise_->setValue();
        } else {
            promise_->setValue(extract_(result));
        }
    }

    const std::shared_ptr<connector::Promise<T>> promise_;
    const std::shared_ptr<connector::detail::SharedFutureState<T>> state_;
    const Extract extract_;
};

}  // namespace cmddistributor
