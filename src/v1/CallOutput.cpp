#include "v1/CallOutput.h"

#include "connector/interpreter/ConnectorCmdWinBuffer.h"
#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"
#include "v1/DiscardingStreamBuf.h"

namespace connector::interpreter::v1 {

namespace {

const foundation::log::DiagnosticLogger logger("connector::numora_output");

// In UTF-16 code units. Less than an evaluation's, whose text a client is waiting for: it is made anew for
// every call.
constexpr std::size_t keptOutput = 4'000;

std::shared_ptr<nmutil::io::UnicodeStreamBuf> makeBuffer(bool isWanted) {
    if (isWanted && logger.isEnabled(foundation::log::Severity::Debug))
        return std::make_shared<ConnectorCmdWinBuffer>(keptOutput);
    return std::make_shared<DiscardingStreamBuf>();
}

}  // namespace

CallOutput::CallOutput(bool isWanted)
    : buffer_(makeBuffer(isWanted)), sink_(std::make_shared<nmutil::io::NMSink>(buffer_)) {}

void CallOutput::write(std::u16string_view text) {
    buffer_->sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

void CallOutput::writeToLog(const std::string& function) const {
    if (!logger.isEnabled(foundation::log::Severity::Debug)) return;
    const auto* const captured = dynamic_cast<const ConnectorCmdWinBuffer*>(buffer_.get());
    const std::u16string text = captured ? captured->getString() : std::u16string();
    if (!text.empty()) logger.debug(function + ": " + fl::i18n::to_string(text));
}

}  // namespace connector::interpreter::v1
