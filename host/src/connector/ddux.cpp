#include "connector/ddux/ddux.h"

#include <stdexcept>
#include <utility>

#include "host/Environment.h"

namespace connector::ddux {

bool isDduxEnabled() { return host::environment().isDduxEnabled(); }

Future<std::unique_ptr<DduxControlResponse>> logEvent(std::unique_ptr<DduxControlMessage>&& record) {
    return host::environment().logEvent(std::move(record));
}

}  // namespace connector::ddux

namespace host {

connector::Future<std::unique_ptr<connector::ddux::DduxControlResponse>> Environment::logEvent(
    std::unique_ptr<connector::ddux::DduxControlMessage> /*record*/) {
    return connector::makeFailedFuture<std::unique_ptr<connector::ddux::DduxControlResponse>>(
        std::make_exception_ptr(std::runtime_error("This environment keeps no telemetry.")));
}

}  // namespace host
