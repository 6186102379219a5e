#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace app {

/// Ends the process, with status 0, when this is not destroyed in time: code that no interrupt ends must not
/// keep it.
///
/// Threads: made and destroyed on any.
class StopDeadline {
public:
    explicit StopDeadline(std::chrono::milliseconds limit);
    ~StopDeadline();
    StopDeadline(const StopDeadline&) = delete;
    StopDeadline& operator=(const StopDeadline&) = delete;

private:
    void run();

    const std::chrono::milliseconds limit_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isOver_ = false;
    std::thread thread_;  // last: starts once the rest exists
};

}  // namespace app
