#include "connector/interpreter/ConnectorCmdWinSink.h"

#include <exception>
#include <iostream>
#include <string_view>
#include <utility>

#include "CmdWinState.h"
#include "connector/interpreter/ConnectorCmdWinSinkFactory.h"
#include "foundation/log/diagnostic_logger.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
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

const foundation::log::DiagnosticLogger logger("connector::interpreter::cmdwinsink");

void logNesting(std::string_view operation) {
    if (!logger.isEnabled(foundation::log::Severity::Debug)) return;
    const CmdWinState& now = cmdWinState();
    logger.debug(std::string(operation) + ": " + std::to_string(now.nestingLevel) + ", " +
                 std::to_string(now.skipLevel) + ", " + std::to_string(now.promises.size()));
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
    CmdWinState& now = cmdWinState();
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
    cmdWinState().promises.push_front(std::move(promise));
    try {
        pushNesting();
    } catch (...) {
        cmdWinState().promises.pop_front();
        throw;
    }
}

void ConnectorCmdWinSink::abandonEval() {
    cmdWinState().promises.pop_front();
    --cmdWinState().nestingLevel;
    closeWindowIfIdle();
}

void ConnectorCmdWinSink::postEval() { popNesting(); }

void ConnectorCmdWinSink::shutdown() {
    std::exception_ptr failure;
    while (!cmdWinState().promises.empty() && cmdWinState().nestingLevel != 0) {
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
    CmdWinState& now = cmdWinState();
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
    CmdWinState& now = cmdWinState();
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
    if (cmdWinState().promises.empty()) return;
    ++cmdWinState().skipLevel;
    doDone();
}

void ConnectorCmdWinSink::doDone() {
    logNesting("doDone");
    ConnectorExecutionStatuses statuses;
    std::exception_ptr failure;
    try {
        collectStatuses(statuses);
    } catch (...) {
        failure = std::current_exception();  // an evaluation whose results are not available still ends
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
    cmdWinState().flags.ctrlCCalled = true;
}

void ConnectorCmdWinSink::doClc() {
    logger.debug("doClc:");
    const CapturedBuffers captured = capturedBuffers();
    for (ConnectorCmdWinBuffer* buffer : {captured.out.get(), captured.err.get()}) {
        buffer->pubsync();
        buffer->clear();
    }
    cmdWinState().flags.clcCalled = true;
}

void ConnectorCmdWinSink::doHome() {
    logger.debug("doHome:");
    cmdWinState().flags.homeCalled = true;
}

bool ConnectorCmdWinSink::isInputRequestNecessary() {
    logger.debug("isInputRequestNecessary:");
    const auto requester = services::prompt::getInputRequester();
    if (requester == nmutil::prompt::KINETRIX_IN_EDITOR_DEBUG_PROMPT &&
        !iqm::Iqm::instance().isInEditorDebugInputWanted()) {
        return false;
    }
    if (requester == cmdWinState().oldStatus && !isDirty() && !services::PromptHolder::isEmergency())
        return false;
    cmdWinState().oldStatus = requester;
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
    capturedBuffers().err->sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

void ConnectorCmdWinSink::addFault(common::v1::Fault fault) {
    cmdWinState().flags.faults.push_back(std::move(fault));
}

bool ConnectorCmdWinSink::isWaitedFor() const { return !cmdWinState().promises.empty(); }

void ConnectorCmdWinSink::errorProcessed() {
    logger.debug("errorProcessed:");
    cmdWinState().flags.hadReportableError = true;
}

void ConnectorCmdWinSink::suggestionCallback(const SuggestionEvent& event) {
    if (event.isElsewhere()) return;
    MutexLock lock(cmdWinState().mutex);
    cmdWinState().suggestion = event.getText();
}

void ConnectorCmdWinSink::resetForTests() {
    CmdWinState& now = cmdWinState();
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
