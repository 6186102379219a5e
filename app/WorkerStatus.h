#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "connector/ThreadSafety.h"
#include "link/BlackBox.h"
#include "link/messages.h"
#include "standalone/HostObserver.h"

namespace app {

/// What is known of a worker's interpreter: in its black box, for when it dies; in states that are told at
/// once; and in the answers to pings.
///
/// Threads: as HostObserver; `pong` from any.  Locks: mutex_ and outputMutex_, both leaves.
class WorkerStatus : public standalone::HostObserver {
public:
    using TellState = std::function<void(std::string_view)>;
    using DeafFor = std::function<std::chrono::milliseconds()>;

    /// `blackBox`: a descriptor.  Throws: std::system_error.
    explicit WorkerStatus(int blackBox) : box_(blackBox) {}

    /// Before the interpreter starts.
    void setTellState(TellState tellState) { tellState_ = std::move(tellState); }
    /// StandaloneHost::deafFor; called with a lock held, and only while a request runs.
    void setDeafFor(DeafFor deafFor) CONNECTOR_EXCLUDES(mutex_);

    void runs(const standalone::RunningCode* innermost) override CONNECTOR_EXCLUDES(mutex_);
    void isIn(std::string_view state) override { tellState_(state); }
    void printed(std::u16string_view text) override CONNECTOR_EXCLUDES(outputMutex_);
    void written(std::string_view bytes) override CONNECTOR_EXCLUDES(outputMutex_);

    links::PongHead pong() CONNECTOR_EXCLUDES(mutex_);

private:
    using Clock = std::chrono::steady_clock;

    TellState tellState_;

    connector::Mutex outputMutex_;
    links::BlackBox box_;  // requests on the interpreter thread alone, output under outputMutex_

    connector::Mutex mutex_;
    DeafFor deafFor_ CONNECTOR_GUARDED_BY(mutex_);
    std::string request_ CONNECTOR_GUARDED_BY(mutex_);
    Clock::time_point since_ CONNECTOR_GUARDED_BY(mutex_);
    bool isRunning_ CONNECTOR_GUARDED_BY(mutex_) = false;
};

}  // namespace app
