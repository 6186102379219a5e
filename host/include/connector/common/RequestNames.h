#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>

#include "connector/ThreadSafety.h"

namespace connector::common {

/// The names that requests of clients have which have not ended: two with one name could not be told apart.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf.
class RequestNames : public std::enable_shared_from_this<RequestNames> {
public:
    /// One name, from `reserve` until `release` or its destruction.
    class Reservation {
    public:
        Reservation(std::shared_ptr<RequestNames> names, std::string name, std::function<void()> released)
            : names_(std::move(names)), name_(std::move(name)), released_(std::move(released)) {}
        ~Reservation() { names_->release(*this); }
        Reservation(const Reservation&) = delete;
        Reservation& operator=(const Reservation&) = delete;

        /// The request has ended; the name may be used again.
        void release() { names_->release(*this); }

    private:
        friend class RequestNames;
        const std::shared_ptr<RequestNames> names_;
        std::string name_;  // under the mutex of the names; empty when it is released
        const std::function<void()> released_;
    };

    /// Null when the name is in use. `released` is called once when it is not any more, on the thread that
    /// releases it; it must throw nothing.
    std::shared_ptr<Reservation> reserve(const std::string& name, std::function<void()> released = nullptr)
        CONNECTOR_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        if (!names_.insert(name).second) return nullptr;
        return std::make_shared<Reservation>(shared_from_this(), name, std::move(released));
    }

private:
    void release(Reservation& reservation) CONNECTOR_EXCLUDES(mutex_) {
        {
            const MutexLock lock(mutex_);
            if (reservation.name_.empty()) return;
            names_.erase(reservation.name_);
            reservation.name_.clear();
        }
        if (reservation.released_) reservation.released_();
    }

    Mutex mutex_;
    std::unordered_set<std::string> names_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace connector::common
