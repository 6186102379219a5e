#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace gateway::bayeux {

/// Lets so many things happen in a second; as many may come at once after a pause.
///
/// Threads: one at a time.
class RateLimit {
public:
    using Time = std::chrono::steady_clock::time_point;

    RateLimit(std::size_t perSecond, Time now)
        : most_(static_cast<double>(perSecond)), left_(most_), updated_(now) {}

    /// Whether one more may happen now; then it counts.
    bool take(Time now) {
        left_ = leftAt(now);
        updated_ = now;
        if (left_ < 1) return false;
        left_ -= 1;
        return true;
    }
    /// Whether nothing has happened lately.
    bool isIdle(Time now) const { return leftAt(now) >= most_; }

private:
    double leftAt(Time now) const {
        return std::min(most_, left_ + most_ * std::chrono::duration<double>(now - updated_).count());
    }

    double most_;
    double left_;
    Time updated_;
};

}  // namespace gateway::bayeux
