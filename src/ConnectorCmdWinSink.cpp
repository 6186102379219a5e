#include "connector/interpreter/ConnectorCmdWinSink.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <exception>
#include <iostream>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "connector/ThreadSafety.h"
#include "connector/interpreter/ConnectorCmdWinSinkFactory.h"
#include "foundation/log/diagnostic_logger.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "interpreter/IInterpreter.h"
#include "iqm/Iqm.h"
#include "nmutil/events.h"
#include "services/interrupts.h"
#include "services/window.h"
#include "shutdown/ShutdownObject.h"

namespace connector::interpreter {

namespace {

using foundation::msg_svc::eventmgr::ScopedConnection;
using numora::lang::correction::SuggestionEvent;
using services::io::CmdWinSinkHandle;
using StatusPromise = Promise<ConnectorExecutionStatuses>;

const foundation::log::DiagnosticLogger logger("connector::interpreter::cmdwinsink");

struct Buffers {
    std::shared_ptr<ConnectorCmdWinBuffer> out;
    std::shared_ptr<ConnectorCmdWinBuffer> err;
};

struct Flags {
    bool hadReportableError = false;
    bool ctrlCCalled = false;
    bool clcCalled = false;
    bool homeCalled = false;
    std::vector<common::v1::Fault> faults;
};

constexpr std::uint32_t noPromptSeen =
    65535;  // no prompt has this value, so that the first counts as a change

struct State {
    // Touched on the interpreter thread alone.
    std::uint32_t nestingLevel = 0;
    std::uint32_t skipLevel = 0;
    std::uint32_t oldStatus = noPromptSeen;
    Flags flags;
    std::deque<std::shared_ptr<StatusPromise>> promises;  // newest in front
    ScopedConnection suggestionSub;

    Mutex mutex;
    std::u16string suggestion GUARDED_BY(mutex);
    Buffers buffers GUARDED_BY(mutex);
    std::shared_ptr<ConnectorCmdWinSink> outCmdWinSink GUARDED_BY(mutex);
    std::shared_ptr<ConnectorCmdWinSink> errCmdWinSink GUARDED_BY(mutex);
};

// Never destroyed: the host may keep the sinks while the process ends.
State& state() {
    static auto* instance = new State;
    return *instance;
}

Buffers buffers() {
    ConnectorCmdWinSink::getInstance(false);
    MutexLock lock(state().mutex);
    return state().buffers;
}

void logNesting(std::string_view operation) {
    if (!logger.isEnabled(foundation::log::Severity::Debug)) return;
    const State& now = state();
    logger.debug(std::string(operation) + ": " + std::to_string(now.nestingLevel) + ", " +
                 std::to_string(now.skipLevel) + ", " + std::to_string(now.promises.size()));
}

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

void collect(ConnectorExecutionStatuses& statuses) {
    statuses.codeBlockStatus = mnGetCodeBlockStatus();
    statuses.executionStatus = mnGetExecutionStatus();
    statuses.inputRequester = services::prompt::getInputRequester();
    flushStandardStreams();
    const Buffers captured = buffers();
    captured.out->pubsync();
    captured.err->pubsync();
    if (captured.out->isTruncated() || captured.err->isTruncated()) {
        statuses.faults.emplace_back("ComputeService.EvalTruncateResultWarning",
                                     "The output was too long: only its end was kept.");
    }
    statuses.output = captured.out->getString();
    const std::u16string errorText = captured.err->getString();
    if (!errorText.empty()) state().flags.hadReportableError = true;
    statuses.output += errorText;
}

// Takes the newest promise out and leaves the state as a new level needs it.
std::shared_ptr<StatusPromise> closeLevel(ConnectorExecutionStatuses& statuses) {
    State& now = state();
    MutexLock lock(now.mutex);
    auto promise = std::move(now.promises.front());
    now.promises.pop_front();
    now.buffers.out->clear();
    now.buffers.err->clear();
    const std::u16string suggestion = std::exchange(now.suggestion, {});
    Flags flags = std::exchange(now.flags, {});
    if (!suggestion.empty()) statuses.output += u"\nDid you mean: " + suggestion + u" ?";
    statuses.hadReportableError = flags.hadReportableError || !suggestion.empty();
    statuses.ctrlCCalled = flags.ctrlCCalled;
    statuses.clcCalled = flags.clcCalled;
    statuses.homeCalled = flags.homeCalled;
    std::ranges::move(flags.faults, std::back_inserter(statuses.faults));
    return promise;
}

void closeWindowIfIdle() {
    State& now = state();
    if (now.nestingLevel != 0) return;
    CmdWinSinkHandle::restorePreviousFactory();
    now.suggestionSub.disconnect();
    // What came after the last level had been answered has nobody to go to. It must not become part of the
    // next evaluation, nor make that one an error.
    now.flags = {};
    MutexLock lock(now.mutex);
    now.suggestion.clear();
    now.buffers.out->clear();
    now.buffers.err->clear();
}

class SinkShutdown : public shutdown::ShutdownObject {
public:
    SinkShutdown() : ShutdownObject("ConnectorCmdWinSink") {}
    void shutdown() override {
        try {
            ConnectorCmdWinSink::shutdown();
        } catch (...) {
            std::cout << "Problem shutting down ConnectorCmdWinSink." << std::endl;
        }
    }
};

// Takes the object out again when the library is unloaded, because its code goes too.
struct ShutdownRegistration {
    ShutdownRegistration() { shutdown::ShutdownRegistry::RegisterObject(object, false); }
    ~ShutdownRegistration() { shutdown::ShutdownRegistry::UnregisterObject(object.get()); }
    ShutdownRegistration(const ShutdownRegistration&) = delete;
    ShutdownRegistration& operator=(const ShutdownRegistration&) = delete;
    const std::shared_ptr<SinkShutdown> object = std::make_shared<SinkShutdown>();
};
const ShutdownRegistration shutdownRegistration;

}  // namespace

std::shared_ptr<ConnectorCmdWinSink> ConnectorCmdWinSink::getInstance(bool isError) {
    State& now = state();
    MutexLock lock(now.mutex);
    if (!now.errCmdWinSink) {
        now.buffers.out = std::make_shared<ConnectorCmdWinBuffer>();
        now.outCmdWinSink.reset(new ConnectorCmdWinSink(now.buffers.out));
        now.buffers.err = std::make_shared<ConnectorCmdWinBuffer>();
        now.errCmdWinSink.reset(new ConnectorCmdWinSink(now.buffers.err));
    }
    return isError ? now.errCmdWinSink : now.outCmdWinSink;
}

std::shared_ptr<services::io::CmdWinSinkFactory> ConnectorCmdWinSink::getFactory() {
    return std::make_shared<ConnectorCmdWinSinkFactory>();
}

void ConnectorCmdWinSink::preEval(std::shared_ptr<StatusPromise> promise) {
    utSetInterruptEnabled(true);
    state().promises.push_front(std::move(promise));
    try {
        pushNesting();
    } catch (...) {
        state().promises.pop_front();
        throw;
    }
}

void ConnectorCmdWinSink::abandonEval() {
    state().promises.pop_front();
    --state().nestingLevel;
    closeWindowIfIdle();
}

void ConnectorCmdWinSink::postEval() { popNesting(); }

void ConnectorCmdWinSink::shutdown() {
    std::exception_ptr failure;
    while (!state().promises.empty() && state().nestingLevel != 0) {
        try {
            popNesting();
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
    }
    if (failure) std::rethrow_exception(failure);
}

void ConnectorCmdWinSink::pushNesting() {
    logNesting("pushNesting");
    State& now = state();
    if (now.promises.empty()) return;
    getInstance(false)->setDirty(true);
    if (now.nestingLevel == 0) {
        ScopedConnection subscription(
            nmutil::eventmgr::createLocalEventMgr()->subscribe<SuggestionEvent>(suggestionCallback));
        CmdWinSinkHandle::setFactory(getFactory());
        now.suggestionSub = std::move(subscription);
    }
    ++now.nestingLevel;
}

void ConnectorCmdWinSink::popNesting() {
    logNesting("popNesting");
    State& now = state();
    if (now.nestingLevel == 0) return;
    --now.nestingLevel;
    try {
        if (now.skipLevel != 0) {
            --now.skipLevel;
        } else if (!now.promises.empty()) {
            doDone();
        }
    } catch (...) {
        closeWindowIfIdle();
        throw;
    }
    closeWindowIfIdle();
}

void ConnectorCmdWinSink::doSkipLevel() {
    logNesting("doSkipLevel");
    if (state().promises.empty()) return;
    ++state().skipLevel;
    doDone();
}

void ConnectorCmdWinSink::doDone() {
    logNesting("doDone");
    ConnectorExecutionStatuses statuses;
    std::exception_ptr failure;
    try {
        collect(statuses);
    } catch (...) {
        failure = std::current_exception();  // an evaluation whose results cannot be had still ends
    }
    // Resolving may throw, and may run code that uses the sink: the level is closed by then.
    const std::shared_ptr<StatusPromise> promise = closeLevel(statuses);
    if (failure) {
        promise->setException(failure);
    } else {
        promise->setValue(std::move(statuses));
    }
}

void ConnectorCmdWinSink::ctrlCProcessed() {
    logger.debug("ctrlCProcessed:");
    state().flags.ctrlCCalled = true;
}

void ConnectorCmdWinSink::doClc() {
    logger.debug("doClc:");
    const Buffers captured = buffers();
    for (ConnectorCmdWinBuffer* buffer : {captured.out.get(), captured.err.get()}) {
        buffer->pubsync();
        buffer->clear();
    }
    state().flags.clcCalled = true;
}

void ConnectorCmdWinSink::doHome() {
    logger.debug("doHome:");
    state().flags.homeCalled = true;
}

bool ConnectorCmdWinSink::isInputRequestNecessary() {
    logger.debug("isInputRequestNecessary:");
    const auto requester = services::prompt::getInputRequester();
    if (requester == nmutil::prompt::KINETRIX_IN_EDITOR_DEBUG_PROMPT &&
        !iqm::Iqm::instance().isInEditorDebugInputWanted()) {
        return false;
    }
    if (requester == state().oldStatus && !isDirty() && !services::PromptHolder::isEmergency()) return false;
    state().oldStatus = requester;
    return requester != nmutil::prompt::BASE_PROMPT;
}

void ConnectorCmdWinSink::requestInput() {
    logger.debug("requestInput:");
    if (!isInputRequestNecessary()) return;
    services::PromptHolder::isEmergency();  // the host expects to be asked; the answer changes nothing
    doSkipLevel();
}

void ConnectorCmdWinSink::doPrintableError(std::u16string&& text) {
    logger.debug("doPrintableError:");
    buffers().err->sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

void ConnectorCmdWinSink::addFault(common::v1::Fault fault) {
    state().flags.faults.push_back(std::move(fault));
}

bool ConnectorCmdWinSink::isWaitedFor() const { return !state().promises.empty(); }

void ConnectorCmdWinSink::errorProcessed() {
    logger.debug("errorProcessed:");
    state().flags.hadReportableError = true;
}

void ConnectorCmdWinSink::suggestionCallback(const SuggestionEvent& event) {
    if (event.isElsewhere()) return;
    MutexLock lock(state().mutex);
    state().suggestion = event.getText();
}

void ConnectorCmdWinSink::resetForTests() {
    State& now = state();
    now.suggestionSub.disconnect();
    now.nestingLevel = 0;
    now.skipLevel = 0;
    now.oldStatus = noPromptSeen;
    now.flags = {};
    now.promises.clear();
    MutexLock lock(now.mutex);
    now.suggestion.clear();
    now.buffers = {};
    now.outCmdWinSink.reset();
    now.errCmdWinSink.reset();
}

}  // namespace connector::interpreter
