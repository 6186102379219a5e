#pragma once

#include <atomic>
#include <exception>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "connector/Future.h"

namespace connector {

/// The producing side of a one-shot channel: gives out one future and resolves it once. The states are drawn
/// in connector/detail/SharedFutureState.h.
///
/// Threads: every operation from any thread; the promise may be destroyed by whoever its value has woken,
/// while `setValue` is still returning. Continuations run on the thread that resolves, with no lock held.
/// Throws: every operation but `valid` throws std::runtime_error "Promise state isn't valid!" on a promise
/// that was moved from.
template <class T>
class Promise {
public:
    using State = detail::SharedFutureState<T>;

    Promise() : state_(std::make_shared<State>()), valid_(true) {}
    Promise(Promise&& other) noexcept
        : state_(std::move(other.state_)), valid_(other.valid_.exchange(false)) {}

    /// Abandons its own state, as the destructor does, and takes over the other's.
    Promise& operator=(Promise&& other) noexcept {
        if (this == &other) return *this;
        abandon();
        state_ = std::move(other.state_);
        valid_ = other.valid_.exchange(false);
        return *this;
    }

    /// Resolves a Pending state with std::runtime_error "Promise destroyed before it provided a value.". An
    /// exception from the continuation that this runs is swallowed.
    ~Promise() { abandon(); }

    bool valid() const noexcept { return valid_; }

    /// Throws: std::runtime_error on a second call.
    Future<T> getFuture() { return getState()->getFuture(); }

    /// Resolves with a value. When the consumer has cancelled, the value is dropped without an error.
    /// Throws: std::runtime_error when there is a value or an error already, which stays; what a continuation
    /// throws.
    void setValue(detail::StoredValue<T> value) requires(!std::is_void_v<T>) {
        getState()->setValue(std::move(value));
    }
    void setValue() requires std::is_void_v<T> { getState()->setValue(); }

    /// Resolves with an exception, which must not be null; otherwise as `setValue`.
    void setException(std::exception_ptr error) { getState()->setException(std::move(error)); }

    /// Owns: shares the state, which thereby outlives every operation on it.
    std::shared_ptr<State> getState() const {
        if (!valid_) throw std::runtime_error("Promise state isn't valid!");
        return state_;
    }

private:
    void abandon() noexcept {
        if (!valid_.exchange(false)) return;
        const auto state = std::exchange(state_, nullptr);
        state->abandon();
    }

    std::shared_ptr<State> state_;
    std::atomic<bool> valid_;
};

}  // namespace connector
