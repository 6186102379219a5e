#pragma once

#include <string_view>

#include "cmddistributor/RunOptions.h"
#include "connector/common/ContextState.h"

namespace connector::interpreter::v1 {

/// How a request of a client is to be run: when it may be dequeued, with the capabilities that its context
/// names, and with the errors that it shows written into the command-window sink. `logPrefix` begins the log
/// lines about these.
cmddistributor::RunOptions requestOptions(const common::ContextState& context,
                                          cmddistributor::WhenToDequeue when, std::string_view logPrefix);

}  // namespace connector::interpreter::v1
