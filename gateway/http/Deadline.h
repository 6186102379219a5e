#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/steady_timer.hpp>

namespace gateway::http {

/// Runs an action unless it is put off or cancelled in time.
///
/// Threads: one strand, on which the action runs, too; destroyed there or when nothing runs.
class Deadline {
public:
    explicit Deadline(const boost::asio::any_io_executor& strand) : timer_(strand) {}

    /// Takes the place of the one before. `action` has to keep alive what holds this deadline.
    void set(std::chrono::milliseconds limit, std::function<void()> action) {
        const std::uint64_t number = ++number_;
        timer_.expires_after(limit);
        timer_.async_wait([this, number, action = std::move(action)](const auto& error) {
            // A wait that was put off may be about to report already.
            if (!error && number == number_) action();
        });
    }
    void cancel() {
        ++number_;
        timer_.cancel();
    }

private:
    boost::asio::steady_timer timer_;
    std::uint64_t number_ = 0;
};

}  // namespace gateway::http
