#pragma once

#include <cstdint>

#include "nmutil/prompt/InputRequester.h"

namespace services::prompt {

/// The prompt that the interpreter shows now.  Threads: any.
nmutil::prompt::InputRequester getInputRequester();

/// The number of the question that the interpreter waits for input for, counted from 1; 0 while it waits for
/// none. Code that waits keeps its number while other code runs at its prompt and asks nothing itself.
/// Threads: any.
std::uint64_t promptNumber();

/// Whether what is typed for that question may be shown. True while there is none.  Threads: any.
bool isEchoed();

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
