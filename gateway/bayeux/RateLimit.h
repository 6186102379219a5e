#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace gateway::bayeux {

/// A token bucket: so many things may happen in a second, and as many at once after a pause.
///
/// Threads: one at a time.
class RateLimit {
public:
    using Time = std::chrono::steady_clock::time_point;

    RateLimit(std::size_t perSecond, Time now)
        : capacity_(static_cast<double>(perSecond)), available_(capacity_), updated_(now) {}

    /// Whether one more may happen now; then it counts.
    bool take(Time now) {
        available_ = availableAt(now);
        updated_ = now;
        if (available_ < 1) return false;
        available_ -= 1;
        return true;
    }
    /// Whether nothing has happened lately.
    bool isIdle(Time now) const { return availableAt(now) >= capacity_; }

private:
    double availableAt(Time now) const {
        return std::min(capacity_,
                        available_ + capacity_ * std::chrono::duration<double>(now - updated_).count());
    }

    double capacity_;
    double available_;
    Time updated_;
};

}  // namespace gateway::bayeux
