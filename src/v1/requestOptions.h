#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "cmddistributor/RunOptions.h"
#include "connector/common/ContextState.h"

namespace connector::interpreter::v1 {

/// Takes an error that a user is to be shown, on the interpreter thread.
using ShowError = std::function<void(const nmutil::io::PrintableErrorEvent&)>;

/// Writes it into the command-window sink, where it becomes part of the evaluation that is captured. A
/// missing capability is also one of its faults, for programs.
void showInCommandWindow(const nmutil::io::PrintableErrorEvent& event);

/// What a user is shown of an error. Where a function is not available here, a traceback into it would not
/// help, and the message alone is shown.
std::u16string printableText(const nmutil::io::PrintableErrorEvent& event);

/// How a request of a client is to be run: when it may be dequeued, with the capabilities that its context
/// names, and with the context itself, which is kept under `contextHandle`.
cmddistributor::RunOptions clientOptions(const common::ContextState& context,
                                         cmddistributor::WhenToDequeue when, std::uint64_t contextHandle);

/// The same for the current context of this thread, with the errors that the request shows given to `show`.
/// `logPrefix` begins the log lines about these.
cmddistributor::RunOptions requestOptions(const common::ContextState& context,
                                          cmddistributor::WhenToDequeue when, std::string_view logPrefix,
                                          ShowError show = showInCommandWindow);

}  // namespace connector::interpreter::v1
