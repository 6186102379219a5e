#pragma once

#include <cstdint>

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

/// The size of the command window in characters. The setters return the previous value.
/// Threads: the interpreter thread.
std::uint64_t ioGetNumWindowRows();
std::uint64_t ioGetNumWindowColumns();
std::uint64_t ioSetNumWindowRows(std::uint64_t rows);
std::uint64_t ioSetNumWindowColumns(std::uint64_t columns);
