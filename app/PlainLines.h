#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Session.h"

namespace app {

/// Lines as they come from a file, a pipe or a terminal, where the system alone edits them.  Threads: one.
class PlainLines {
public:
    explicit PlainLines(const StandardStreams& streams);

    /// Whether a person sees the prompt and what is typed.
    bool isInteractive() const { return isInteractive_; }

    /// Shows `prompt` where somebody sees it, and what is typed if `isEchoed`, and reads a line, without its
    /// newline; none at the end.
    /// Blocks: until a line is there.
    /// Throws: InputError for a line that is not UTF-8; std::system_error; ClosedPipe.
    std::optional<std::string> read(const std::string& prompt, bool isEchoed = true);

private:
    const StandardStreams streams_;
    const bool isInteractive_;
    std::string pending_;  ///< read already, not yet returned
    std::size_t count_ = 0;
};

}  // namespace app
