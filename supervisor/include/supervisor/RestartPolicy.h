#pragma once

#include <chrono>
#include <deque>
#include <functional>

namespace supervisor {

/// Whether an interpreter has ended badly so often that it is not started anew: `limit` times within
/// `period`. That stays so until reset().
///
/// Threads: one at a time.
class RestartPolicy {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    static constexpr std::size_t limit = 3;
    static constexpr std::chrono::minutes period{5};

    explicit RestartPolicy(Clock now = std::chrono::steady_clock::now) : now_(std::move(now)) {}

    void noteBadEnd();
    bool hasFailed() const { return hasFailed_; }
    void reset();

private:
    const Clock now_;
    std::deque<std::chrono::steady_clock::time_point> ends_;  ///< the last ones, `limit` at most
    bool hasFailed_ = false;
};

}  // namespace supervisor
