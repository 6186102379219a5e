#include "access/Refusals.h"

#include <utility>

#include "log.h"

namespace gateway::access {

using connector::MutexLock;

namespace {

constexpr std::size_t longestDetail = 100;

std::string_view textOf(Refusals::Reason reason) {
    using enum Refusals::Reason;
    switch (reason) {
        case Token:
            return "the token is missing or wrong";
        case Rights:
            return "the token may not do that";
        case Host:
            return "the Host does not name this server";
        case Origin:
            return "pages of this Origin are not allowed";
        default:
            return "too many connections are open";
    }
}

}  // namespace

std::string_view Refusals::nameOf(Reason reason) {
    static constexpr std::array<std::string_view, reasons> names = {"token", "rights", "host", "origin",
                                                                    "connections"};
    return names.at(static_cast<std::size_t>(reason));
}

Refusals::Refusals(boost::asio::io_context& context, std::chrono::milliseconds interval)
    : interval_(interval),
      entries_{Entry{.timer = boost::asio::steady_timer(context)},
               Entry{.timer = boost::asio::steady_timer(context)},
               Entry{.timer = boost::asio::steady_timer(context)},
               Entry{.timer = boost::asio::steady_timer(context)},
               Entry{.timer = boost::asio::steady_timer(context)}} {}

void Refusals::note(Reason reason, std::string_view client, std::string_view detail) {
    {
        const MutexLock lock(mutex_);
        Entry& entry = of(reason);
        ++entry.count;
        entry.last = client;
        if (std::exchange(entry.isQuiet, true)) {
            ++entry.unlogged;
            return;
        }
    }
    std::string line = "Refused a request from " + std::string(client) + ": ";
    line += textOf(reason);
    if (!detail.empty()) line.append(": ").append(detail.substr(0, longestDetail));
    log().warning(line);
    endIntervalLater(reason);
}

void Refusals::endIntervalLater(Reason reason) {
    auto& timer = of(reason).timer;
    timer.expires_after(interval_);
    timer.async_wait([this, reason](const auto& error) {
        if (!error) endInterval(reason);
    });
}

void Refusals::endInterval(Reason reason) {
    std::uint64_t count = 0;
    std::string last;
    {
        const MutexLock lock(mutex_);
        Entry& entry = of(reason);
        count = std::exchange(entry.unlogged, 0);
        last = entry.last;
        entry.isQuiet = count > 0;
    }
    if (count == 0) return;
    log().warning("Refused " + std::to_string(count) + " more in the last " +
                  std::to_string(interval_.count() / 1000) + " seconds, the last from " + last + ": " +
                  std::string(textOf(reason)));
    endIntervalLater(reason);
}

std::array<std::uint64_t, Refusals::reasons> Refusals::counts() const {
    const MutexLock lock(mutex_);
    std::array<std::uint64_t, reasons> counts{};
    for (std::size_t i = 0; i < reasons; ++i) counts.at(i) = entries_.at(i).count;
    return counts;
}

}  // namespace gateway::access
