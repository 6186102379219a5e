#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>

#include "link/FrameWriter.h"

namespace worker {

/// Sends what the sockets of a link have not taken, as soon as they take more.
///
/// Threads: `wake` from any; the thread of its own is joined by `stop`.
class SendingThread {
public:
    static constexpr std::size_t count = 2;

    /// Throws: std::system_error.
    SendingThread();
    ~SendingThread();
    SendingThread(const SendingThread&) = delete;
    SendingThread& operator=(const SendingThread&) = delete;

    struct Way {
        int socket = -1;
        std::shared_ptr<links::FrameWriter> writer;
    };
    void start(std::array<Way, count> ways);
    /// Has one of the ways looked after.  Blocks: never.
    void wake(std::size_t way);
    void stop();

private:
    void run();

    const int event_;
    std::array<Way, count> ways_;
    std::array<std::atomic<bool>, count> isWanted_{};
    std::atomic<bool> isStopped_{false};
    std::thread thread_;
};

}  // namespace worker
