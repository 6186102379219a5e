#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "connector/ThreadSafety.h"

namespace gateway::access {

/// Who was refused, and why: counted for the metrics, and logged as warnings of which there is one for each
/// reason in an interval at most: the first refusal, and then how many more there were. So nobody fills the
/// log by being refused.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf.  Owns: borrows the io_context, of which
/// no thread runs any more when this is destroyed.
class Refusals {
public:
    enum class Reason { Token, Rights, Host, Origin, Connections };
    static constexpr std::size_t reasons = 5;
    /// As the label of the metrics.
    static std::string_view nameOf(Reason reason);

    explicit Refusals(boost::asio::io_context& context,
                      std::chrono::milliseconds interval = std::chrono::seconds(10));

    /// `detail` is what was not right, such as the Host; it must hold no token.
    void note(Reason reason, std::string_view client, std::string_view detail = {})
        CONNECTOR_EXCLUDES(mutex_);
    std::array<std::uint64_t, reasons> counts() const CONNECTOR_EXCLUDES(mutex_);

private:
    struct Entry {
        std::uint64_t count = 0;
        std::uint64_t unlogged = 0;
        std::string last{};  ///< the client of the last one
        bool isQuiet = false;
        /// Used by who has set isQuiet, until that is unset.
        boost::asio::steady_timer timer;
    };

    void endIntervalLater(Reason reason);
    void endInterval(Reason reason) CONNECTOR_EXCLUDES(mutex_);
    Entry& of(Reason reason) { return entries_.at(static_cast<std::size_t>(reason)); }

    const std::chrono::milliseconds interval_;
    mutable connector::Mutex mutex_;
    std::array<Entry, reasons> entries_;  // but for the timers, guarded by mutex_
};

}  // namespace gateway::access
