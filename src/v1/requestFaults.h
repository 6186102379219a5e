#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "connector/common/v1/Message.h"

namespace connector::interpreter::v1 {

/// The fault of an error in the code. `identifier` tells programs which one it is, where it has one of its
/// own.
connector::common::v1::Fault codeFault(const std::u16string& message, const std::string& identifier);

/// Logs what stopped a request while it was queued or running, and adds the fault for it. `kind` is "Eval" or
/// "FEval"; `request` describes it in the log.
void addFault(connector::common::v1::Response& response, const std::exception& error, std::string_view kind,
              const std::string& request);

}  // namespace connector::interpreter::v1
