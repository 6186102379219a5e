#pragma once

/// Names for clang's thread-safety annotations, and the standard mutex and locks carrying them.
///
/// With g++ the annotations are empty and the types do what those of the standard library do; clang's
/// `-Wthread-safety` then proves, at compile time, that guarded members are touched under their mutex. Under
/// the thread sanitizer of g++ they also note which mutex is taken under which.

#include <mutex>

#include "connector/detail/lockOrder.h"

#if defined(__clang__)
#define CONNECTOR_TSA(x) __attribute__((x))
#else
#define CONNECTOR_TSA(x)
#endif

#define CONNECTOR_GUARDED_BY(m) CONNECTOR_TSA(guarded_by(m))
#define CONNECTOR_REQUIRES(...) CONNECTOR_TSA(requires_capability(__VA_ARGS__))
#define CONNECTOR_EXCLUDES(...) CONNECTOR_TSA(locks_excluded(__VA_ARGS__))

namespace connector {

/// A plain, non-recursive `std::mutex` that the analysis knows.
class CONNECTOR_TSA(capability("mutex")) Mutex {
public:
    explicit constexpr Mutex(detail::MutexOwner owner = detail::MutexOwner::current()) noexcept
        : owner_(owner) {}

    void lock() CONNECTOR_TSA(acquire_capability()) { mutex_.lock(); }
    void unlock() CONNECTOR_TSA(release_capability()) { mutex_.unlock(); }
    bool try_lock() CONNECTOR_TSA(try_acquire_capability(true)) { return mutex_.try_lock(); }

    /// The wrapped mutex, for `std::condition_variable`.
    std::mutex& native() { return mutex_; }

private:
    friend class MutexLock;

    std::mutex mutex_;
    [[no_unique_address]] const detail::MutexOwner owner_;
};

/// Holds `mutex` for the scope. It can be released and taken again, and it can be waited with.
class CONNECTOR_TSA(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex& mutex) CONNECTOR_TSA(acquire_capability(mutex))
        : lock_(mutex.native()), held_(mutex.owner_) {}
    ~MutexLock() CONNECTOR_TSA(release_capability()) = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void unlock() CONNECTOR_TSA(release_capability()) {
        lock_.unlock();
        held_.release();
    }
    void lock() CONNECTOR_TSA(acquire_capability()) {
        lock_.lock();
        held_.take();
    }

    /// The lock, for the wait operations of `std::condition_variable`.
    std::unique_lock<std::mutex>& native() { return lock_; }

private:
    std::unique_lock<std::mutex> lock_;
    [[no_unique_address]] detail::HeldMutex held_;
};

}  // namespace connector
