#include "ports/LocalPort.h"

#include <chrono>
#include <utility>

#include "connector/common/ClientRequests.h"

namespace gateway::ports {

using connector::common::ClientRequests;
using connector::common::RequestRefusal;

namespace {

constexpr auto completionTime = std::chrono::milliseconds(500);  // of interrupted code that is streamed

}  // namespace

LocalPort::LocalPort(Parts parts, dispatch::DispatcherOptions options)
    : parts_(std::move(parts)), dispatcher_(parts_.framework, parts_.serializer, std::move(options)) {}

void LocalPort::submit(const std::string& typeName, Json json, Context context, Answered answered) {
    if (context && dispatch::isInterrupt(typeName)) {
        // Before the code that runs ends, and the next one begins.
        const auto own = context->getOr<std::shared_ptr<ClientRequests>>(ClientRequests::contextKey, nullptr);
        if (own) own->withdraw();
    }
    dispatcher_.submit(typeName, std::move(json), std::move(context), std::move(answered));
}

void LocalPort::stream(messages::ClientSession& session, const std::string& channel, const std::string& json,
                       const Context& context, const Taken& taken) {
    session.publish(channel, json, context);
    taken(context->getOr(RequestRefusal::contextKey, RequestRefusal()));
}

PortMetrics LocalPort::metrics() const {
    PortMetrics metrics{.requests = dispatcher_.metrics(), .streaming = {}};
    if (parts_.streaming) metrics.streaming = parts_.streaming->counts();
    return metrics;
}

InterpreterState LocalPort::state() const {
    InterpreterState state;
    state.since = start_;
    if (!isReady()) state.state = "starting";
    const auto requests = dispatcher_.metrics();
    if (requests.running > 0) state.activity = "busy";
    return state;
}

void LocalPort::restart(bool /*force*/, std::optional<std::uint64_t> /*life*/, Answered answered) {
    answered(dispatch::errorAnswer(
        501, "The interpreter runs in the process of the server, which cannot restart it."));
}

void LocalPort::stop() {
    dispatcher_.stop();
    if (parts_.streaming) parts_.streaming->waitUntilIdle(completionTime);
}

}  // namespace gateway::ports
