#pragma once

#include <chrono>
#include <concepts>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "connector/detail/SharedFutureState.h"

namespace connector {

/// The consuming side of a one-shot channel: yields its value once, to one `get` or to one continuation. The
/// states are drawn in connector/detail/SharedFutureState.h.
///
/// A future may outlive its promise and still be read. Destroying it does not cancel anything.
///
/// Threads: every operation from any thread, several at a time, but for move, assignment and destruction.
/// Throws: every operation but `valid` throws std::runtime_error "Future state isn't valid!" when the future
/// is default-constructed or moved from.
template <class T>
class Future {
public:
    using State = detail::SharedFutureState<T>;

    /// A future that is not valid.
    Future() = default;

    /// A future on `state`; not valid when that is null.
    explicit Future(std::shared_ptr<State> state) noexcept
        : state_(std::move(state)), valid_(state_ != nullptr) {}

    Future(Future&& other) noexcept
        : state_(std::move(other.state_)), valid_(std::exchange(other.valid_, false)) {}
    Future& operator=(Future&& other) noexcept {
        valid_ = std::exchange(other.valid_, false);
        state_ = std::move(other.state_);
        return *this;
    }
    ~Future() = default;

    bool valid() const noexcept { return valid_; }

    /// Returns the value, moved out of the state; rethrows the error. The future stays valid.
    /// Blocks: until resolved, without a time limit.
    /// Throws: the stored exception; std::runtime_error when the result was claimed before, when a
    /// continuation is attached, or when the future is or gets cancelled.
    T get() { return getState()->get(); }

    /// True once there is a value, an error or a cancellation. Takes no lock.
    bool isReady() const { return getState()->isResolved(); }

    /// Waits without claiming the value.
    /// Blocks: until resolved, without a time limit.
    void wait() const { getState()->waitUntilResolved(); }

    /// Waits for at most `limit`, without claiming the value; true when resolved.
    template <class Rep, class Period>
    bool waitFor(std::chrono::duration<Rep, Period> limit) const {
        return getState()->waitFor(limit);
    }

    /// Gives up: a Pending state becomes Cancelled, its waiters are woken, its continuation is destroyed
    /// without a call and what the producer sets later is dropped. No effect once resolved.
    void cancel() { getState()->cancel(); }

    /// Takes the place of `get`: `continuation` is called once with a future on the same state, whose `get`
    /// returns at once, when there is a value or an error. It is destroyed after the call, or without one
    /// when the future is or gets cancelled. Threads: it runs on the thread that resolves the promise or, if
    /// that has happened, on this one before `then` returns; no lock is held. What it throws leaves through
    /// the operation that ran it (`then`, `setValue`, `setException`) and changes nothing in the state; only
    /// a promise's destructor swallows it. Throws: std::runtime_error when the result was claimed before or a
    /// continuation is attached.
    template <std::invocable<Future<T>> F>
    void then(F&& continuation) {
        getState()->then(std::forward<F>(continuation));
    }

    /// Owns: shares the state, which thereby outlives every operation on it.
    std::shared_ptr<State> getState() const {
        if (!valid_) throw std::runtime_error("Future state isn't valid!");
        return state_;
    }

private:
    std::shared_ptr<State> state_;
    bool valid_ = false;
};

/// A future that has its value already.
template <class T>
Future<T> makeReadyFuture(T value) {
    auto state = std::make_shared<detail::SharedFutureState<T>>();
    state->setValue(std::move(value));
    return Future<T>(std::move(state));
}
inline Future<void> makeReadyFuture() {
    auto state = std::make_shared<detail::SharedFutureState<void>>();
    state->setValue();
    return Future<void>(std::move(state));
}

/// A future that has failed already, with `error`, which must not be null.
template <class T>
Future<T> makeFailedFuture(std::exception_ptr error) {
    auto state = std::make_shared<detail::SharedFutureState<T>>();
    state->setException(std::move(error));
    return Future<T>(std::move(state));
}

}  // namespace connector
