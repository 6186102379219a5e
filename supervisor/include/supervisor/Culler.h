#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>

namespace supervisor {

struct CullerOptions {
    std::chrono::minutes idle{0};  ///< 0: never ended for being idle
    bool ifWatched = true;         ///< also while somebody is subscribed
};

/// When an interpreter has been idle for so long that it is to be ended. The time counts from the end of the
/// last request, streamed code or typed input, or from the start. The end is announced a minute before, and
/// put off by all that puts off the end.
///
/// Threads: one at a time.
class Culler {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Clock = std::function<Time()>;
    enum class Step { Nothing, Announce, End };

    static constexpr std::chrono::minutes notice{1};

    /// The interpreter is ready, and idle.
    explicit Culler(CullerOptions options, Clock now = std::chrono::steady_clock::now);

    /// A request, streamed code or typed input begins, or ends. Ends come once for each begin.
    void noteBegin();
    void noteEnd();
    /// How many are subscribed now.
    void noteWatchers(std::size_t watchers) { watchers_ = watchers; }

    /// What is due now; Announce is returned once for each idle time, End then until something begins.
    Step look();
    /// When something is due next if nothing happens until then; nothing: not foreseeable.
    std::optional<Time> nextLook() const;

private:
    bool isHeld() const { return running_ > 0 || (watchers_ > 0 && !options_.ifWatched); }

    const CullerOptions options_;
    const Clock now_;
    Time idleSince_;
    std::size_t running_ = 0;
    std::size_t watchers_ = 0;
    std::optional<Time> announced_{};
};

}  // namespace supervisor
