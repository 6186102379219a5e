#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace app {

/// Ends the process when this is not destroyed in time: code that no interrupt ends, or a server that does
/// not answer, must not keep it.
///
/// Threads: made and destroyed on any.
class StopDeadline {
public:
    static constexpr const char* deafCode = "The running code does not end; the process ends without it.";

    /// `reason` is logged then.
    explicit StopDeadline(std::chrono::milliseconds limit, std::string reason = deafCode, int status = 0);
    ~StopDeadline();
    StopDeadline(const StopDeadline&) = delete;
    StopDeadline& operator=(const StopDeadline&) = delete;

private:
    void run();

    const std::chrono::milliseconds limit_;
    const std::string reason_;
    const int status_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isOver_ = false;
    std::thread thread_;  // last: starts once the rest exists
};

}  // namespace app
