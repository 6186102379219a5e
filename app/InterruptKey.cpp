#include "InterruptKey.h"

#include <csignal>
#include <thread>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

namespace app {

namespace {

bool isIgnored(int number) {
    struct sigaction current {};
    return ::sigaction(number, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

}  // namespace

class InterruptKey::Impl {
public:
    explicit Impl(std::function<void()> handler) : handler_(std::move(handler)) {
        wait();
        thread_ = std::thread([this] { context_.run(); });
    }
    ~Impl() {
        context_.stop();
        thread_.join();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

private:
    void wait() {
        signals_.async_wait([this](const boost::system::error_code& error, int) {
            if (error) return;
            handler_();
            wait();
        });
    }

    const std::function<void()> handler_;
    boost::asio::io_context context_;
    boost::asio::signal_set signals_{context_, SIGINT};
    std::thread thread_;
};

InterruptKey::InterruptKey(std::function<void()> handler)
    : impl_(isIgnored(SIGINT) ? nullptr : std::make_unique<Impl>(std::move(handler))) {}

InterruptKey::~InterruptKey() = default;

}  // namespace app
