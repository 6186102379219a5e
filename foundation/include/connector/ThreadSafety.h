#pragma once

/// Names for clang's thread-safety annotations, and the standard mutex and locks carrying them.
///
/// With g++ the annotations are empty and the types are exactly those of the standard library; clang's
/// `-Wthread-safety` then proves, at compile time, that guarded members are touched under their mutex.

#include <mutex>

#if defined(__clang__)
#define CONNECTOR_TSA(x) __attribute__((x))
#else
#define CONNECTOR_TSA(x)
#endif

#define GUARDED_BY(m) CONNECTOR_TSA(guarded_by(m))
#define REQUIRES(...) CONNECTOR_TSA(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) CONNECTOR_TSA(locks_excluded(__VA_ARGS__))

namespace connector {

/// A plain, non-recursive `std::mutex` that the analysis knows.
class CONNECTOR_TSA(capability("mutex")) Mutex {
public:
    void lock() CONNECTOR_TSA(acquire_capability()) { mutex_.lock(); }
    void unlock() CONNECTOR_TSA(release_capability()) { mutex_.unlock(); }
    bool try_lock() CONNECTOR_TSA(try_acquire_capability(true)) { return mutex_.try_lock(); }

    /// The wrapped mutex, for `std::condition_variable`.
    std::mutex& native() { return mutex_; }

private:
    std::mutex mutex_;
};

/// Holds `mutex` for the scope. It can be released and taken again, and it can be waited with.
class CONNECTOR_TSA(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex& mutex) CONNECTOR_TSA(acquire_capability(mutex)) : lock_(mutex.native()) {}
    ~MutexLock() CONNECTOR_TSA(release_capability()) = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void unlock() CONNECTOR_TSA(release_capability()) { lock_.unlock(); }
    void lock() CONNECTOR_TSA(acquire_capability()) { lock_.lock(); }

    /// The lock, for the wait operations of `std::condition_variable`.
    std::unique_lock<std::mutex>& native() { return lock_; }

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace connector
