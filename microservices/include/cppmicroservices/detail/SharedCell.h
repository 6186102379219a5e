#pragma once

#include <memory>
#include <utility>

#include "connector/ThreadSafety.h"

namespace cppmicroservices::detail {

/// A shared pointer that one thread may set while others read it.
///
/// Threads: any.  Locks: mutex_, a leaf; what it pointed to is released without it.
template <class T>
class SharedCell {
public:
    explicit SharedCell(std::shared_ptr<T> value = nullptr) : value_(std::move(value)) {}

    std::shared_ptr<T> get() const EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        return value_;
    }
    /// Returns what was there.
    std::shared_ptr<T> exchange(std::shared_ptr<T> value) EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        value_.swap(value);
        return value;
    }

private:
    mutable connector::Mutex mutex_;
    std::shared_ptr<T> value_ GUARDED_BY(mutex_);
};

}  // namespace cppmicroservices::detail
