#include "foundation/msg_svc/eventmgr/EventMgr.h"

#include <exception>
#include <typeinfo>

#include <boost/stacktrace.hpp>

#include "foundation/core/diag.h"
#include "foundation/log/diagnostic_logger.h"

namespace foundation::msg_svc::eventmgr {

namespace {

std::string describeCurrentException() {
    try {
        throw;
    } catch (const std::exception& error) {
        return core::diag::detail::demangle_typeid_name(typeid(error).name()) + ": " + error.what();
    } catch (...) {
        return "an exception of an unknown type";
    }
}

}  // namespace

std::string EventMgr::GetStackTrace() const { return to_string(boost::stacktrace::stacktrace()); }

void EventMgr::processExceptionFromEventHandler(const std::string& stackTrace) {
    static const log::DiagnosticLogger logger("foundation::msg_svc::eventmgr");
    logger.error("An event handler failed: " + describeCurrentException() + "\n" + stackTrace);
}

}  // namespace foundation::msg_svc::eventmgr
