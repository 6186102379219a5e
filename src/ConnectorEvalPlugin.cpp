#include "connector/interpreter/ConnectorEvalPlugin.h"

#include <algorithm>
#include <atomic>

#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "connector/interpreter/ConnectorEvalIIP.h"
#include "interpreter/IInterpreter.h"
#include "services/window.h"

namespace connector::interpreter {

namespace {

std::atomic<bool> licenceBusy{false};

}  // namespace

bool ConnectorEvalPlugin::isLicenceBusy() { return licenceBusy; }

void ConnectorEvalPlugin::pre() {
    UserEvalPlugin::pre();
    const auto& request = dynamic_cast<const ConnectorEvalIIP&>(*getBaseIIP());
    savedColumns_ = ioGetNumWindowColumns();
    savedRows_ = ioGetNumWindowRows();
    ConnectorCmdWinSink::preEval(request.promise());
    licenceBusy = true;
    if (request.columns() <= 0) return;
    try {
        ioSetNumWindowColumns(static_cast<std::uint64_t>(request.columns()));
        ioSetNumWindowRows(static_cast<std::uint64_t>(std::max(request.rows(), 0)));
    } catch (...) {
        // The code does not run, and there is no `post`; the client is told why by the request's own end.
        ConnectorCmdWinSink::abandonEval();
        restoreWindow();
        throw;
    }
}

// The client waits for the end of the level, whatever happens to the rest.
void ConnectorEvalPlugin::post() {
    try {
        restoreHost();
    } catch (...) {
        ConnectorCmdWinSink::postEval();
        throw;
    }
    ConnectorCmdWinSink::postEval();
}

void ConnectorEvalPlugin::restoreWindow() {
    licenceBusy = false;
    ioSetNumWindowColumns(savedColumns_);
    ioSetNumWindowRows(savedRows_);
}

void ConnectorEvalPlugin::restoreHost() {
    restoreWindow();
    IInterpreter::GetInterpreterBridge()->notifyEvalEnd(true);
    UserEvalPlugin::post();
    inDispatchPendingInterests();
}

void ConnectorEvalPlugin::processMFileError() {
    if (mdInAMexFile()) {
        ConnectorCmdWinSink::errorProcessed();
        return;
    }
    // The text of an error that code raises itself reaches the sink as a printable error.
    const auto builtin = mdGetCurrentBuiltinFcnName();
    if (builtin && *builtin != "error") ConnectorCmdWinSink::errorProcessed();
}

}  // namespace connector::interpreter
