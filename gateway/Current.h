#pragma once

#include <memory>
#include <utility>

#include "connector/ThreadSafety.h"

namespace gateway {

/// A value that is replaced as a whole, while threads go on with the one that they have got.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf, while a pointer is copied.
/// (std::atomic<std::shared_ptr> is a spin lock in the library that we build with, and not one that the
/// thread sanitizer understands.)
template <class Value>
class Current {
public:
    explicit Current(std::shared_ptr<Value> value) : value_(std::move(value)) {}

    std::shared_ptr<Value> get() const CONNECTOR_EXCLUDES(mutex_) {
        const connector::MutexLock lock(mutex_);
        return value_;
    }
    void set(std::shared_ptr<Value> value) CONNECTOR_EXCLUDES(mutex_) {
        const connector::MutexLock lock(mutex_);
        value_.swap(value);  // the old one is released after the lock
    }

private:
    mutable connector::Mutex mutex_;
    std::shared_ptr<Value> value_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway
