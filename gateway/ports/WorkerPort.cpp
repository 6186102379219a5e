#include "ports/WorkerPort.h"

#include <utility>

#include "ports/Work.h"
#include "ports/WorkerLife.h"

namespace gateway::ports {

using connector::common::ContextState;

WorkerPort::WorkerPort(boost::asio::io_context& context, messages::LocalMessageService& messages,
                       supervisor::Supervisor& supervisor, InterpreterSpec spec)
    : life_(std::make_shared<WorkerLife>(context, messages, supervisor, std::move(spec))) {}

WorkerPort::~WorkerPort() { stop(); }

void WorkerPort::submit(const std::string& typeName, Json json, Context context, Answered answered) {
    if (!context) context = std::make_shared<ContextState>();
    life_->submit(Work::request(typeName, std::move(json), std::move(context), std::move(answered)));
}

void WorkerPort::stream(messages::ClientSession& session, const std::string& channel, const std::string& json,
                        const Context& context, const Taken& taken) {
    life_->submit(Work::stream(session, channel, json, context, taken));
}

bool WorkerPort::isReady() const { return life_->isReady(); }
PortMetrics WorkerPort::metrics() const { return life_->metrics(); }
std::uint64_t WorkerPort::life() const { return life_->number(); }
InterpreterState WorkerPort::state() const { return life_->state(); }
std::vector<supervisor::DeathRecord> WorkerPort::deaths() const { return life_->deaths(); }
void WorkerPort::restart(bool force, std::optional<std::uint64_t> life, Answered answered) {
    life_->restart(force, life, std::move(answered));
}
void WorkerPort::start(Answered answered) { life_->start(std::move(answered)); }
void WorkerPort::stop() { life_->stop(); }
void WorkerPort::setWatchers(std::function<std::size_t()> watchers) {
    life_->setWatchers(std::move(watchers));
}
void WorkerPort::stopDeleted() { life_->stop(supervisor::cause::deletedByAClient); }

}  // namespace gateway::ports
