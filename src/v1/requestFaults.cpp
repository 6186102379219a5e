#include "v1/requestFaults.h"

#include "cmddistributor/RuntimeException.h"
#include "connector/wireWords.h"
#include "fl/i18n/text.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

connector::common::v1::Fault codeFault(const std::u16string& message, const std::string& identifier) {
    connector::common::v1::Fault fault(wire::faultCode::code, fl::i18n::to_string(message));
    if (!identifier.empty()) fault.conditions.push_back({identifier, message});
    return fault;
}

void addFault(connector::common::v1::Response& response, const std::exception& error, std::string_view kind,
              const std::string& request) {
    const std::string name(kind);
    const auto* failure = dynamic_cast<const cmddistributor::RuntimeException*>(&error);
    if (failure && failure->getExecutionStatus() == nmutil::cmddistributor::EXECUTION_CANCELLED) {
        log().warning(name + " request cancelled before starting: " + request);
        response.faults.emplace_back(wire::faultCode::code, "Request was cancelled before starting.");
        return;
    }
    log().warning(name + ' ' + request + " errored: " + error.what());
    response.faults.emplace_back(wire::faultCode::code, "Error while executing eval request.");
}

}  // namespace connector::interpreter::v1
