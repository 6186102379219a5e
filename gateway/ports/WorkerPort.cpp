#include "ports/WorkerPort.h"

#include <utility>

#include "connector/common/requests.h"
#include "ports/Work.h"
#include "ports/WorkerLife.h"

namespace gateway::ports {

using connector::common::ContextScope;
using connector::common::ContextState;

WorkerPort::WorkerPort(boost::asio::io_context& context, messages::LocalMessageService& messages,
                       supervisor::Supervisor& supervisor, InterpreterSpec spec)
    : life_(std::make_shared<WorkerLife>(context, messages, supervisor, std::move(spec))) {}

WorkerPort::~WorkerPort() { stop(); }

void WorkerPort::submit(const std::string& typeName, Json json, Context context, Answered answered) {
    if (!context) context = std::make_shared<ContextState>();
    connector::common::stampArrival(*context);
    auto clientType = context->getOr<std::string>("clientType", std::string());
    life_->submit({.name = typeName,
                   .json = std::move(json),
                   .context = std::move(context),
                   .clientType = std::move(clientType),
                   .answered = std::move(answered),
                   .taken = nullptr});
}

void WorkerPort::stream(messages::ClientSession& session, const std::string& channel, const std::string& json,
                        const Context& context, const Taken& taken) {
    connector::common::stampArrival(*context);
    life_->submit({.name = channel,
                   .json = std::make_shared<const std::string>(json),
                   .context = context,
                   .clientType = session.clientType(),
                   .answered = nullptr,
                   .taken = taken});
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
