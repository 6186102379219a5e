#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "GatewayFixture.h"
#include "ports/InterpreterSpec.h"
#include "ports/LocalPort.h"

inline constexpr const char* userToken = "a-token-for-lab-only";

/// What happens to interpreters, as a test wishes.
struct TestPortWishes {
    std::shared_future<void> restart{};  ///< ends when this is ready
    std::atomic<bool> isBroken{false};   ///< no kernel can be made
};

/// An interpreter with a life that restarts count up, and that says what it was made with.
class TestPort : public gateway::ports::LocalPort {
public:
    TestPort(Parts parts, gateway::ports::InterpreterSpec spec, const TestPortWishes& wishes)
        : gateway::ports::LocalPort(std::move(parts), {.threads = 2}),
          spec_(std::move(spec)),
          wishes_(wishes) {}

    const std::shared_ptr<connector::common::RequestNames>& names() const override {
        if (wishes_.isBroken) throw std::runtime_error("broken");
        return gateway::ports::LocalPort::names();
    }
    std::uint64_t life() const override { return life_; }
    gateway::ports::InterpreterState state() const override {
        auto state = gateway::ports::LocalPort::state();
        state.life = life_;
        state.memoryMiB = spec_.worker.memoryMiB;
        state.cpus = spec_.worker.cpus;
        return state;
    }
    std::vector<supervisor::DeathRecord> deaths() const override {
        supervisor::DeathRecord record;
        record.interpreter = spec_.worker.id;
        record.life = 1;
        record.cause = supervisor::cause::signal;
        record.detail = "SIGSEGV";
        return {record};
    }
    void restart(bool force, std::optional<std::uint64_t> life, Answered answered) override {
        if (life && *life != life_) return answered(dispatch::errorAnswer(409, "another life"));
        life_ += force ? 10 : 1;
        restarting_ = std::thread([restart = wishes_.restart, answered = std::move(answered)] {
            if (restart.valid()) restart.wait();
            answered({});
        });
    }
    ~TestPort() override {
        if (restarting_.joinable()) restarting_.join();
    }

private:
    const gateway::ports::InterpreterSpec spec_;
    const TestPortWishes& wishes_;
    std::atomic<std::uint64_t> life_{1};
    std::thread restarting_;
};

class InterpretersFixture : public GatewayFixture {
protected:
    void serve(gateway::GatewayOptions options = {}) {
        options.makePort = [this](auto&, auto&, const gateway::ports::InterpreterSpec& spec) {
            return std::make_unique<TestPort>(
                gateway::ports::LocalPort::Parts{
                    .framework = framework_, .serializer = serializer_, .isReady = [] { return true; }},
                spec, wishes_);
        };
        start(std::move(options));
    }
    TestResponse request(const std::string& method, const std::string& path, const std::string& body = "",
                         const std::string& token = TestClient::token,
                         const std::string& headers = "") const {
        auto client = connect();
        return client.ask(
            client.head(method + " " + path, "Authorization: Bearer " + token +
                                                 "\r\nContent-Type: application/json\r\n" + headers +
                                                 "Content-Length: " + std::to_string(body.size()) + "\r\n") +
            body);
    }

    TestPortWishes wishes_;
};
