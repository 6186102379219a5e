#include "v1/TypedInput.h"

#include <exception>
#include <utility>

#include "cmddistributor/RuntimeException.h"
#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "services/window.h"
#include "v1/log.h"
#include "v1/queueTask.h"

namespace connector::interpreter::v1 {

void typeAtPrompt(const std::u16string& characters, std::uint64_t prompt) {
    const bool isOther = prompt != 0 && prompt != services::prompt::promptNumber();
    if (isOther || !services::prompt::detail::isInCharBufferMode()) {
        throw cmddistributor::RuntimeException(nmutil::cmddistributor::EXECUTION_CANCELLED,
                                               "NUMORA:prompt:ended",
                                               u"The code no longer waits for what was typed.");
    }
    for (const char16_t unit : characters) services::io::rawModeCharHandler(unit);
}

TypedLevels::Task TypedLevels::type(const std::u16string& characters,
                                    const std::shared_ptr<Promise<ConnectorExecutionStatuses>>& promise) {
    // First, because a level that nothing closes would stay open. It cannot run before the code has ended.
    if (!closing_) {
        closing_.emplace(queueTask(
            zvm_, cmddistributor::RunOptions(), [self = shared_from_this()] { self->closeAll(); }, nullptr));
        closing_->setReadyToExecute();
    }
    // By its level the host knows who typed.
    ConnectorCmdWinSink::preEval(promise);
    try {
        typeAtPrompt(characters);
    } catch (...) {
        ConnectorCmdWinSink::abandonEval();
        throw;
    }
    ++open_;
    return *closing_;
}

void TypedLevels::closeAll() {
    closing_.reset();
    for (std::size_t levels = std::exchange(open_, 0); levels > 0; --levels) {
        try {
            ConnectorCmdWinSink::postEval();
        } catch (const std::exception& error) {
            // Whoever waited has given up and was answered otherwise.
            log().warning("The late result of typed input was dropped: " + std::string(error.what()));
        }
    }
}

}  // namespace connector::interpreter::v1
