#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "connector/ThreadSafety.h"

namespace connector::common {

/// The streaming requests of one client that have not ended. Whoever publishes for the client puts it into
/// the context of each request, as a shared pointer under `contextKey`; it bounds them by it, and takes back
/// those that wait when the client interrupts.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf; requests are taken back without it.
class ClientRequests {
public:
    static constexpr const char* contextKey = "clientRequests";

    /// One request, from its construction to its destruction.  Threads: any; it may end, once or again, while
    /// it is set.
    class Entry {
    public:
        /// `all` may be null.
        explicit Entry(std::shared_ptr<ClientRequests> all) : all_(std::move(all)) {
            if (all_) number_ = all_->add();
        }
        ~Entry() { end(); }
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        /// How it is taken back if it has not begun.
        void set(std::function<void()> withdraw) {
            if (all_) all_->set(number_, std::move(withdraw));
        }
        void end() {
            if (all_) all_->remove(number_);
        }

    private:
        const std::shared_ptr<ClientRequests> all_;
        std::uint64_t number_ = 0;  // fixed after construction
    };

    /// A number that no other client of this process has.
    std::uint64_t number() const { return number_; }

    std::size_t count() const CONNECTOR_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return entries_.size();
    }

    /// Takes back what has not begun; each is completed before this returns.
    void withdraw() CONNECTOR_EXCLUDES(mutex_) {
        std::vector<std::function<void()>> actions;
        {
            const MutexLock lock(mutex_);
            for (auto& [number, action] : entries_) {
                if (action) actions.push_back(std::exchange(action, nullptr));
            }
        }
        for (const auto& action : actions) action();
    }

    /// Takes back whatever can be taken back from now on.
    void refuse() CONNECTOR_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        isRefusing_ = true;
    }

private:
    std::uint64_t add() CONNECTOR_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        entries_.emplace(++last_, nullptr);
        return last_;
    }
    void set(std::uint64_t number, std::function<void()> withdraw) CONNECTOR_EXCLUDES(mutex_) {
        {
            const MutexLock lock(mutex_);
            const auto found = entries_.find(number);
            if (found == entries_.end()) return;
            if (!isRefusing_) {
                found->second = std::move(withdraw);
                return;
            }
        }
        withdraw();
    }
    void remove(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        entries_.erase(number);
    }

    static std::uint64_t newNumber() {
        static std::atomic<std::uint64_t> last{0};
        return ++last;
    }

    const std::uint64_t number_ = newNumber();

    mutable Mutex mutex_;
    std::map<std::uint64_t, std::function<void()>> entries_ CONNECTOR_GUARDED_BY(mutex_);  ///< by age
    std::uint64_t last_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isRefusing_ CONNECTOR_GUARDED_BY(mutex_) = false;
};

}  // namespace connector::common
