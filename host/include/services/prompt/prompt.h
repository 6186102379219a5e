#pragma once

#include "nmutil/prompt/InputRequester.h"

namespace services::prompt {

/// The prompt that the interpreter shows now.  Threads: any.
nmutil::prompt::InputRequester getInputRequester();

namespace detail {

/// Whether the interpreter is reading typed characters, so that text from a client is input and not code.
/// Threads: any.
bool isInCharBufferMode();

}  // namespace detail

}  // namespace services::prompt

namespace services {

class PromptHolder {
public:
    /// Whether the prompt asks for input that cannot wait.  Threads: the interpreter thread.
    static bool isEmergency();
};

namespace io {

/// Types one UTF-16 code unit into the interpreter's type-ahead buffer.  Threads: the interpreter thread.
void rawModeCharHandler(int codeUnit);

}  // namespace io

}  // namespace services
