#include "CmdWinState.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <utility>

#include "interpreter/IInterpreter.h"
#include "services/window.h"

namespace connector::interpreter {

namespace {

// Text that passes through the process's own streams on its way to the sink has to be there before the sink
// is read. A stream with nothing to write costs a lock and no system call.
void flushStandardStreams() {
    std::fflush(stdout);
    std::fflush(stderr);
    std::cout.flush();
    std::cerr.flush();
    std::wcout.flush();
    std::wcerr.flush();
}

}  // namespace

// Never destroyed: the host may keep the sinks while the process ends.
CmdWinState& cmdWinState() {
    static auto* instance = new CmdWinState;
    return *instance;
}

CapturedBuffers capturedBuffers() {
    ConnectorCmdWinSink::getInstance(false);
    MutexLock lock(cmdWinState().mutex);
    return cmdWinState().buffers;
}

void collectStatuses(ConnectorExecutionStatuses& statuses) {
    statuses.codeBlockStatus = mnGetCodeBlockStatus();
    statuses.executionStatus = mnGetExecutionStatus();
    statuses.inputRequester = services::prompt::getInputRequester();
    flushStandardStreams();
    const CapturedBuffers captured = capturedBuffers();
    captured.out->pubsync();
    captured.err->pubsync();
    if (captured.out->isTruncated() || captured.err->isTruncated()) {
        statuses.faults.emplace_back("ComputeService.EvalTruncateResultWarning",
                                     "The output was too long: only its end was kept.");
    }
    statuses.output = captured.out->getString();
    const std::u16string errorText = captured.err->getString();
    if (!errorText.empty()) cmdWinState().flags.hadReportableError = true;
    statuses.output += errorText;
}

std::shared_ptr<StatusPromise> closeLevel(ConnectorExecutionStatuses& statuses) {
    CmdWinState& now = cmdWinState();
    MutexLock lock(now.mutex);
    auto promise = std::move(now.promises.front());
    now.promises.pop_front();
    now.buffers.out->clear();
    now.buffers.err->clear();
    const std::u16string suggestion = std::exchange(now.suggestion, {});
    LevelFlags flags = std::exchange(now.flags, {});
    if (!suggestion.empty()) statuses.output += u"\nDid you mean: " + suggestion + u" ?";
    statuses.hadReportableError = flags.hadReportableError || !suggestion.empty();
    statuses.ctrlCCalled = flags.ctrlCCalled;
    statuses.clcCalled = flags.clcCalled;
    statuses.homeCalled = flags.homeCalled;
    std::ranges::move(flags.faults, std::back_inserter(statuses.faults));
    return promise;
}

void closeWindowIfIdle() {
    CmdWinState& now = cmdWinState();
    if (now.nestingLevel != 0) return;
    services::io::CmdWinSinkHandle::restorePreviousFactory();
    now.suggestionSub.disconnect();
    // What came after the last level had been answered has nobody to go to. It must not become part of the
    // next evaluation, nor make that one an error.
    now.flags = {};
    MutexLock lock(now.mutex);
    now.suggestion.clear();
    now.buffers.out->clear();
    now.buffers.err->clear();
}

}  // namespace connector::interpreter
