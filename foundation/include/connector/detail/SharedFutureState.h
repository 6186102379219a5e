#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>

#include "connector/ThreadSafety.h"
#include "connector/detail/Continuation.h"

namespace connector::detail {

enum class FutureStatus : std::uint32_t { Pending, Value, Error, Cancelled };

/// What a state stores for a `T`: the value itself, and an empty object where there is none, so that one code
/// path serves every `T`.
template <class T>
using StoredValue = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

/// The point of time `limit` from now, or the last one there is. What is not positive is now.
template <class Rep, class Period>
std::chrono::steady_clock::time_point deadlineAfter(std::chrono::duration<Rep, Period> limit) {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;  // holds any duration, if not exactly
    const auto now = Clock::now();
    if (!(limit > limit.zero())) return now;
    if (Seconds(limit) >= Seconds(Clock::time_point::max() - now)) return Clock::time_point::max();
    return now + std::chrono::ceil<Clock::duration>(limit);
}

/// What a promise and its future share: the outcome, and who has asked for it.
///
///     Pending --+-- setValue -----------------------> Value
///               +-- setException, promise is gone --> Error
///               +-- cancel -------------------------> Cancelled
///
/// No state but Pending is ever left: resolving Value or Error again throws, resolving Cancelled drops the
/// outcome.
///
///     datum         Pending           Value                    Error                 Cancelled
///     result        nothing           the value, until a get   the exception, kept   nothing
///                                     moves it to its caller
///     continuation  the state's, if   taken out and run by     as for Value          taken out and destroyed
///                   then() gave one   the resolving thread                           by cancel(), never run
///
/// A continuation that is attached to a Value or Error runs at once on the attaching thread; one that is
/// attached to a Cancelled state is destroyed. Before a continuation runs, both flags below are cleared, so
/// that the future it is given can be read; one that is destroyed has claimed the outcome all the same.
///
/// Threads: every operation from any thread; the caller holds a reference to the state throughout.
/// Locks: mutex, in all but isResolved. Continuations run and are destroyed with no lock held.
/// Owns: the state is always held by shared pointers.
template <class T>
class SharedFutureState : public std::enable_shared_from_this<SharedFutureState<T>> {
public:
    /// Gives out the one future.
    /// Throws: std::runtime_error on a second call.
    Future<T> getFuture() CONNECTOR_EXCLUDES(mutex) {
        const MutexLock lock(mutex);
        if (futureRetrieved_) throw std::runtime_error("Promise already returned a future.");
        futureRetrieved_ = true;
        return Future<T>(this->shared_from_this());
    }

    /// Resolves with a value, then runs the continuation. A cancelled state discards the value without an
    /// error: a producer that ends after its consumer gave up did nothing wrong.
    /// Throws: std::runtime_error when there is an outcome already; what the continuation throws, with the
    /// state resolved.
    void setValue(StoredValue<T> value) CONNECTOR_EXCLUDES(mutex) {
        resolve<FutureStatus::Value>(std::move(value));
    }
    void setValue() requires std::is_void_v<T> { setValue(StoredValue<T>{}); }

    /// Like setValue, with an exception, which must not be null.
    void setException(std::exception_ptr error) CONNECTOR_EXCLUDES(mutex) {
        resolve<FutureStatus::Error>(std::move(error));
    }

    /// Tells a state whose promise is going away: a Pending one gets an error. What a continuation throws is
    /// lost, because a promise's destructor cannot pass it on.
    void abandon() noexcept CONNECTOR_EXCLUDES(mutex) {
        std::unique_ptr<Continuation<T>> continuation;
        {
            const MutexLock lock(mutex);
            if (!isResolved()) {
                storeLocked<FutureStatus::Error>(std::make_exception_ptr(
                    std::runtime_error("Promise destroyed before it provided a value.")));
            }
            continuation = takeContinuationLocked();
        }
        try {
            wakeAndRun(std::move(continuation));
        } catch (...) {  // NOLINT(bugprone-empty-catch): see above
        }
    }

    /// Moves Pending to Cancelled and wakes the waiters. No effect once resolved.
    void cancel() CONNECTOR_EXCLUDES(mutex) {
        std::unique_ptr<Continuation<T>> neverRun;
        {
            const MutexLock lock(mutex);
            if (isResolved()) return;
            status = FutureStatus::Cancelled;
            neverRun = std::move(continuation_);
            if (neverRun) valueRetrieved_ = true;
        }
        condition.notify_all();
    }

    /// Claims the outcome: moves the value out, or rethrows the exception.
    /// Blocks: while Pending.
    /// Throws: std::runtime_error when it was claimed before, belongs to a continuation, or was cancelled.
    T get() CONNECTOR_EXCLUDES(mutex) {
        MutexLock lock(mutex);
        checkUnclaimedLocked();
        valueRetrieved_ = true;
        waitLocked(lock);
        switch (status.load()) {
            case FutureStatus::Value: {
                auto value = std::move(std::get<indexOf(FutureStatus::Value)>(result_));
                result_.template emplace<0>();
                return static_cast<T>(std::move(value));
            }
            case FutureStatus::Error:
                std::rethrow_exception(std::get<indexOf(FutureStatus::Error)>(result_));
            case FutureStatus::Cancelled:
                throw std::runtime_error("Future has been cancelled.");
            default:
                throw std::runtime_error("Invalid Future state reached.");
        }
    }

    /// Hands the outcome to `callable` instead of to a get: see `Future::then`.
    template <class F>
    void then(F&& callable) CONNECTOR_EXCLUDES(mutex) {
        auto continuation = makeContinuation<T>(std::forward<F>(callable));
        {
            const MutexLock lock(mutex);
            checkUnclaimedLocked();
            if (status == FutureStatus::Cancelled) {
                valueRetrieved_ = true;
                return;
            }
            continuation_ = std::move(continuation);
            if (!isResolved()) return;
            continuation = takeContinuationLocked();
        }
        wakeAndRun(std::move(continuation));
    }

    /// True once the status is not Pending. Takes no lock.
    bool isResolved() const noexcept { return status != FutureStatus::Pending; }

    /// Waits without claiming the outcome. A continuation may still be running when this returns.
    /// Blocks: while Pending.
    void waitUntilResolved() CONNECTOR_EXCLUDES(mutex) {
        MutexLock lock(mutex);
        waitLocked(lock);
    }

    /// As waitUntilResolved, for at most `limit`; true when resolved.
    template <class Rep, class Period>
    bool waitFor(std::chrono::duration<Rep, Period> limit) CONNECTOR_EXCLUDES(mutex) {
        const auto deadline = deadlineAfter(limit);
        MutexLock lock(mutex);
        return condition.wait_until(lock.native(), deadline, [this] { return isResolved(); });
    }

    // For code that waits on the state itself: every change of `status` is made under `mutex`, and
    // `condition` is then notified, with the mutex released.
    Mutex mutex;
    std::condition_variable condition;
    std::atomic<FutureStatus> status{FutureStatus::Pending};

private:
    static constexpr std::size_t indexOf(FutureStatus status) { return static_cast<std::size_t>(status); }

    void checkUnclaimedLocked() const CONNECTOR_REQUIRES(mutex) {
        if (valueRetrieved_ || continuation_) {
            throw std::runtime_error("Future already returned it's value or has an associated continuation.");
        }
    }

    void waitLocked(MutexLock& lock) CONNECTOR_REQUIRES(mutex) {
        condition.wait(lock.native(), [this] { return isResolved(); });
    }

    template <FutureStatus Resolved, class Outcome>
    void resolve(Outcome&& outcome) CONNECTOR_EXCLUDES(mutex) {
        std::unique_ptr<Continuation<T>> continuation;
        {
            const MutexLock lock(mutex);
            if (status == FutureStatus::Cancelled) return;
            if (isResolved()) throw std::runtime_error("Promise already resolved.");
            storeLocked<Resolved>(std::forward<Outcome>(outcome));
            continuation = takeContinuationLocked();
        }
        wakeAndRun(std::move(continuation));
    }

    // The status last: a value whose move throws leaves the state Pending, and isResolved() never runs ahead.
    template <FutureStatus Resolved, class Outcome>
    void storeLocked(Outcome&& outcome) CONNECTOR_REQUIRES(mutex) {
        result_.template emplace<indexOf(Resolved)>(std::forward<Outcome>(outcome));
        status = Resolved;
    }

    // The state is Value or Error, or there is no continuation: cancel() takes it out, then() refuses it
    // afterwards.
    std::unique_ptr<Continuation<T>> takeContinuationLocked() CONNECTOR_REQUIRES(mutex) {
        if (continuation_) {
            futureRetrieved_ = false;
            valueRetrieved_ = false;
        }
        return std::move(continuation_);
    }

    // Waiters are woken even when there is a continuation: waitUntilResolved() claims nothing, so both can
    // be.
    void wakeAndRun(std::unique_ptr<Continuation<T>> continuation) CONNECTOR_EXCLUDES(mutex) {
        condition.notify_all();
        if (continuation) continuation->run(Future<T>(this->shared_from_this()));
    }

    // Which alternative holds follows `status`: indexOf(Value) and indexOf(Error) are theirs.
    std::variant<std::monostate, StoredValue<T>, std::exception_ptr> result_ CONNECTOR_GUARDED_BY(mutex);
    std::unique_ptr<Continuation<T>> continuation_ CONNECTOR_GUARDED_BY(mutex);
    bool futureRetrieved_ CONNECTOR_GUARDED_BY(mutex) = false;
    bool valueRetrieved_ CONNECTOR_GUARDED_BY(mutex) = false;
};

}  // namespace connector::detail
