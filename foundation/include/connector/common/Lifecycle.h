#pragma once

#include <atomic>

namespace connector::common {

/// Whether a service is running, and hooks for the two changes.
///
///     stopped --- start: doStart, then the flag is set -------> running
///     running --- stop: the flag is cleared, then doStop -----> stopped
///
/// Threads: `isRunning` from any thread. `start` and `stop` are the owner's, who calls one of them at a time.
/// The destructor does not stop the service: its hooks are gone by then.
class Lifecycle {
public:
    Lifecycle() = default;
    virtual ~Lifecycle() = default;
    Lifecycle(const Lifecycle&) = delete;
    Lifecycle& operator=(const Lifecycle&) = delete;

    /// No effect while running.
    /// Throws: what doStart throws; the service then stays stopped.
    void start() {
        if (running_) return;
        doStart();
        running_ = true;
    }

    /// No effect while stopped. The flag is cleared first: work that `doStop` waits for can see it and end.
    /// Throws: what doStop throws; the service is stopped all the same.
    void stop() {
        if (running_.exchange(false)) doStop();
    }

    bool isRunning() const noexcept { return running_; }

protected:
    /// Called before the service takes its first request.
    virtual void doStart() {}

    /// Called once no new request is taken. Requests that came before may still be running.
    virtual void doStop() {}

private:
    std::atomic<bool> running_{false};
};

}  // namespace connector::common
