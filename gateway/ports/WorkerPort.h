#pragma once

#include <memory>

#include <boost/asio/io_context.hpp>

#include "messages/LocalMessageService.h"
#include "ports/InterpreterPort.h"
#include "ports/InterpreterSpec.h"
#include "supervisor/Supervisor.h"

namespace gateway::ports {

class WorkerLife;

/// An interpreter in a process of its own: docs/interpreters.md.
///
/// Threads, locks: WorkerLife.  Owns: borrows the io_context, the message service and the supervisor, which
/// must outlive the last turn of the io_context.
class WorkerPort : public InterpreterPort {
public:
    WorkerPort(boost::asio::io_context& context, messages::LocalMessageService& messages,
               supervisor::Supervisor& supervisor, InterpreterSpec spec);
    /// Stops.
    ~WorkerPort() override;
    WorkerPort(const WorkerPort&) = delete;
    WorkerPort& operator=(const WorkerPort&) = delete;

    void submit(const std::string& typeName, Json json, Context context, Answered answered) override;
    void stream(messages::ClientSession& session, const std::string& channel, const std::string& json,
                const Context& context, const Taken& taken) override;
    const std::shared_ptr<connector::common::RequestNames>& names() const override { return names_; }
    bool isReady() const override;
    bool isUnused() const override { return life_.use_count() == 1; }
    void stopDeleted() override;
    PortMetrics metrics() const override;
    std::uint64_t life() const override;
    InterpreterState state() const override;
    std::vector<supervisor::DeathRecord> deaths() const override;
    void restart(bool force, std::optional<std::uint64_t> life, Answered answered) override;
    void start(Answered answered) override;
    void setWatchers(std::function<std::size_t()> watchers) override;
    void stop() override;

private:
    const std::shared_ptr<connector::common::RequestNames> names_ =
        std::make_shared<connector::common::RequestNames>();
    const std::shared_ptr<WorkerLife> life_;
};

}  // namespace gateway::ports
