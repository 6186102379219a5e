#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "connector/common/ContextState.h"
#include "ports/InterpreterPort.h"

namespace gateway::ports {

/// A request, or code whose output is streamed, on its way to the process of an interpreter.
struct Work {
    /// The type of the request; of streamed code, the channel.
    std::string name;
    InterpreterPort::Json json;
    InterpreterPort::Context context;
    std::string clientType;
    // One of the two; null once it was called or handed over.
    InterpreterPort::Answered answered;
    InterpreterPort::Taken taken;

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
