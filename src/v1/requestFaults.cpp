#include "v1/requestFaults.h"

#include "cmddistributor/RuntimeException.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

void addFault(connector::common::v1::Response& response, const std::exception& error, std::string_view kind,
              const std::string& request) {
    const std::string name(kind);
    const auto* failure = dynamic_cast<const cmddistributor::RuntimeException*>(&error);
    if (failure && failure->getExecutionStatus() == nmutil::cmddistributor::EXECUTION_CANCELLED) {
        log().warning(name + " request cancelled before starting: " + request);
        response.faults.emplace_back(codeError, "Request was cancelled before starting.");
        return;
    }
    log().warning(name + ' ' + request + " errored: " + error.what());
    response.faults.emplace_back(codeError, "Error while executing eval request.");
}

}  // namespace connector::interpreter::v1
