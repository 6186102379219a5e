#pragma once

#include <atomic>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

#include "ports/WorkerLink.h"
#include "worker/Link.h"

/// An interpreter at the other end of a link, whose worker's end is in this process, too: what tests of the
/// gateway find out holds for an interpreter in a process of its own.
class LinkedPort : public gateway::ports::InterpreterPort {
public:
    LinkedPort(boost::asio::io_context& context, messages::LocalMessageService& messages,
               worker::Link::Services services, std::function<bool()> isReady)
        : isReady_(std::move(isReady)) {
        int main[2], control[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, main) != 0 ||
            ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, control) != 0) {
            std::abort();
        }
        link_ = std::make_shared<gateway::ports::WorkerLink>(
            context, messages, main[0], control[0], links::Start{.id = "default", .life = 1},
            gateway::ports::WorkerLink::Events{
                .ready = [] {},
                .broken = [](const auto&) {},
                .counted = [this](const auto& type, const auto& outcome) { count(type, outcome); },
                .streamStarted = [](const auto&) {},
                .streamEnded = [](const auto&) {}});
        ::close(main[0]);
        ::close(control[0]);
        ends_[0] = main[1];
        ends_[1] = control[1];
        worker_ = std::make_unique<worker::Link>(worker::Link::Options{
            .main = main[1], .control = control[1], .broken = [](bool) {}, .status = {}});
        link_->start();
        starter_ = std::thread([this, services = std::move(services)] {
            worker_->greet({});
            worker_->serve(services);
            isServing_.set_value();
        });
    }
    ~LinkedPort() override {
        stop();
        worker_.reset();
        for (const int end : ends_) ::close(end);
    }

    void submit(const std::string& typeName, Json json, Context context, Answered answered) override {
        send(gateway::ports::Work::request(typeName, std::move(json), std::move(context),
                                           std::move(answered)));
    }
    void stream(messages::ClientSession& session, const std::string& channel, const std::string& json,
                const Context& context, const Taken& taken) override {
        send(gateway::ports::Work::stream(session, channel, json, context, taken));
    }
    const std::shared_ptr<connector::common::RequestNames>& names() const override { return names_; }
    bool isReady() const override { return isReady_(); }
    gateway::ports::PortMetrics metrics() const override {
        const std::lock_guard lock(mutex_);
        gateway::ports::PortMetrics metrics;
        metrics.requests.running = link_->inFlight();
        metrics.requests.outcomes = outcomes_;
        return metrics;
    }
    std::uint64_t life() const override { return 1; }
    gateway::ports::InterpreterState state() const override { return {}; }
    std::vector<supervisor::DeathRecord> deaths() const override { return {}; }
    /// Blocks until it serves.
    void start(Answered answered) override {
        isServing_.get_future().wait();
        answered({});
    }
    void setWatchers(std::function<std::size_t()>) override {}
    void restart(bool, std::optional<std::uint64_t>, Answered) override {}
    void stop() override {
        if (starter_.joinable()) starter_.join();
        isStopped_ = true;
        worker_->stop();
        worker_->flush(std::chrono::seconds(5));
    }

private:
    void send(gateway::ports::Work work) {
        if (isStopped_) return work.refuse(503, "The server is stopping.");
        link_->send(work);
    }
    void count(const std::string& type, const std::string& outcome) {
        const std::lock_guard lock(mutex_);
        ++outcomes_[{type, outcome}];
    }

    const std::function<bool()> isReady_;
    const std::shared_ptr<connector::common::RequestNames> names_ =
        std::make_shared<connector::common::RequestNames>();
    std::shared_ptr<gateway::ports::WorkerLink> link_;
    int ends_[2]{};
    std::unique_ptr<worker::Link> worker_;
    std::thread starter_;
    std::promise<void> isServing_;
    std::atomic<bool> isStopped_{false};
    mutable std::mutex mutex_;
    std::map<std::pair<std::string, std::string>, std::uint64_t> outcomes_;
};
