#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "cmddistributor/RunOptions.h"
#include "connector/common/ContextState.h"

namespace connector::interpreter::v1 {

/// Takes the text of an error that a user is to be shown, on the interpreter thread.
using ShowError = std::function<void(std::u16string)>;

/// Writes it into the command-window sink, where it becomes part of the evaluation that is captured.
void showInCommandWindow(std::u16string text);

/// How a request of a client is to be run: when it may be dequeued, with the capabilities that its context
/// names, and with the errors that it shows given to `show`. `logPrefix` begins the log lines about these.
cmddistributor::RunOptions requestOptions(const common::ContextState& context,
                                          cmddistributor::WhenToDequeue when, std::string_view logPrefix,
                                          ShowError show = showInCommandWindow);

}  // namespace connector::interpreter::v1
