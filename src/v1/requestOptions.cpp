#include "v1/requestOptions.h"

#include <string>
#include <utility>

#include "capabilities/capabilities.h"
#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "fl/i18n/text.h"
#include "nmutil/events.h"
#include "v1/log.h"
#include "v1/requestFaults.h"

namespace connector::interpreter::v1 {

std::u16string printableText(const nmutil::io::PrintableErrorEvent& event) {
    if (event.getID().ends_with("FunctionNotSupported")) return event.getException().getMessage() + u"\n";
    return event.getText();
}

void showInCommandWindow(const nmutil::io::PrintableErrorEvent& event) {
    ConnectorCmdWinSink::getInstance(true)->doPrintableError(printableText(event));
    if (!event.getID().starts_with(capabilities::missingCapabilityPrefix)) return;
    ConnectorCmdWinSink::addFault(codeFault(event.getException().getMessage(), event.getID()));
}

cmddistributor::RunOptions clientOptions(const common::ContextState& context,
                                         cmddistributor::WhenToDequeue when, std::uint64_t contextHandle) {
    const auto clientType = context.getOr<std::string>("clientType", {});
    cmddistributor::RunOptions options(
        when, clientType.empty() ? boost::none : boost::make_optional(fl::i18n::to_ustring(clientType)));
    options.setContextHandle(contextHandle);
    if (context.has("numoraCapabilities")) {
        options.setCapabilities(context.getOr("numoraCapabilities", capabilities::CapabilityList()));
    }
    return options;
}

cmddistributor::RunOptions requestOptions(const common::ContextState& context,
                                          cmddistributor::WhenToDequeue when, std::string_view logPrefix,
                                          ShowError show) {
    auto options = clientOptions(context, when, common::ContextState::currentHandle());
    options.setCallbackImpl(
        [logPrefix, show = std::move(show)](const nmutil::io::PrintableErrorEvent& event) {
            if (log().isEnabled(Severity::Debug)) {
                log().debug(std::string(logPrefix) + " PrintableErrorEvent triggered: id: " + event.getID() +
                            ", text: " + fl::i18n::to_string(event.getText()));
            }
            if (event.getText().empty()) return;
            show(event);
        });
    return options;
}

}  // namespace connector::interpreter::v1
