#pragma once

#include <utility>

#include "interpreter/IInterpreter.h"
#include "iqm/plugins.h"
#include "services/interrupts.h"

namespace connector::interpreter::v1 {

/// Runs one streaming evaluation. Its text goes to the sinks of its request as it is printed, so no level of
/// the capturing command window is opened for it.
///
/// Threads: the interpreter thread.
class StreamingEvalPlugin : public iqm::UserEvalPlugin {
public:
    /// The name that the plug-in is registered under and that requests carry.
    static constexpr const char* registeredName = "ConnectorStreamingEval";

    explicit StreamingEvalPlugin(iqm::PluginOptions options) : UserEvalPlugin(std::move(options)) {}

    void pre() override {
        UserEvalPlugin::pre();
        utSetInterruptEnabled(true);
    }
    void post() override {
        IInterpreter::GetInterpreterBridge()->notifyEvalEnd(true);
        UserEvalPlugin::post();
        inDispatchPendingInterests();
    }
};

}  // namespace connector::interpreter::v1
