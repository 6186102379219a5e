#pragma once

#include <string>

namespace app {

struct Line {
    enum class Kind {
        Text,
        Discarded,  ///< the user pressed Ctrl-C instead of finishing it
        End,        ///< there are no more lines
    };
    Kind kind = Kind::End;
    std::string text;  ///< without its newline; well-formed UTF-8
};

/// Where the console's lines come from.  Threads: one thread.
class LineSource {
public:
    virtual ~LineSource() = default;

    /// Whether a person sees the prompt and what is typed.
    virtual bool isInteractive() const = 0;

    /// Shows `prompt` where somebody sees it, and reads a line.  Blocks: until a line is there.
    virtual Line read(const std::string& prompt) = 0;

    /// Keeps a line for later recall.
    virtual void remember(const std::string& line) = 0;
};

}  // namespace app
