#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "connector/common/ClientRequests.h"
#include "connector/common/ContextState.h"
#include "connector/common/requests.h"
#include "ports/InterpreterPort.h"

namespace gateway::ports {

/// A request, or code whose output is streamed, on its way to the process of an interpreter.
struct Work {
    /// The type of the request; of streamed code, the channel.
    std::string name;
    InterpreterPort::Json json;
    InterpreterPort::Context context;
    std::string clientType;
    /// Of streamed code: its place among those that the client may have under way.
    std::shared_ptr<connector::common::ClientRequests::Entry> ofClient{};
    // One of the two; null once it was called or handed over.
    InterpreterPort::Answered answered;
    InterpreterPort::Taken taken;

    static Work request(const std::string& typeName, InterpreterPort::Json json,
                        InterpreterPort::Context context, InterpreterPort::Answered answered) {
        connector::common::stampArrival(*context);
        auto clientType = context->getOr<std::string>("clientType", std::string());
        return {.name = typeName,
                .json = std::move(json),
                .context = std::move(context),
                .clientType = std::move(clientType),
                .answered = std::move(answered),
                .taken = nullptr};
    }
    static Work stream(const messages::ClientSession& session, const std::string& channel,
                       const std::string& json, const InterpreterPort::Context& context,
                       const InterpreterPort::Taken& taken) {
        using connector::common::ClientRequests;
        connector::common::stampArrival(*context);
        auto ofClient = context->getOr<std::shared_ptr<ClientRequests>>(ClientRequests::contextKey, nullptr);
        return {.name = channel,
                .json = std::make_shared<const std::string>(json),
                .context = context,
                .clientType = session.clientType(),
                .ofClient = std::make_shared<ClientRequests::Entry>(std::move(ofClient)),
                .answered = nullptr,
                .taken = taken};
    }

    bool isStream() const { return taken != nullptr; }
    bool isInterrupt() const { return !isStream() && dispatch::isInterrupt(name); }

    void answer(dispatch::Answer answer) {
        if (answered) return std::exchange(answered, nullptr)(std::move(answer));
        if (taken) std::exchange(taken, nullptr)({answer.status, answer.problem});
    }
    void refuse(int status, std::string_view text, int retrySeconds = 0) {
        answer(dispatch::errorAnswer(status, text, retrySeconds));
    }
};

}  // namespace gateway::ports
