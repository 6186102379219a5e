#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "ports/InterpreterPort.h"

namespace gateway::ports {

/// An interpreter in this process, behind its services.
///
/// Threads, locks: as dispatch::RequestDispatcher.
class LocalPort : public InterpreterPort {
public:
    struct Parts {
        std::shared_ptr<connector::ServiceFramework> framework;
        std::shared_ptr<connector::json::JsonSerializer> serializer;
        std::function<bool()> isReady;
        std::shared_ptr<const messages::RequestCounter> streaming{};  ///< may be null
    };

    LocalPort(Parts parts, dispatch::DispatcherOptions options);

    void submit(const std::string& typeName, Json json, Context context, Answered answered) override;
    void stream(messages::ClientSession& session, const std::string& channel, const std::string& json,
                const Context& context, const Taken& taken) override;
    const std::shared_ptr<connector::common::RequestNames>& names() const override {
        return dispatcher_.names();
    }
    bool isReady() const override { return parts_.isReady(); }
    PortMetrics metrics() const override;
    std::uint64_t life() const override { return 0; }
    InterpreterState state() const override;
    std::vector<supervisor::DeathRecord> deaths() const override { return {}; }
    /// 501: the interpreter would take the gateway with it.
    void restart(bool force, std::optional<std::uint64_t> life, Answered answered) override;
    void start(Answered answered) override { answered({}); }
    void setWatchers(std::function<std::size_t()>) override {}
    void stop() override;

private:
    const Parts parts_;
    const std::chrono::system_clock::time_point start_ = std::chrono::system_clock::now();
    dispatch::RequestDispatcher dispatcher_;
};

}  // namespace gateway::ports
