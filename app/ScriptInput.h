#pragma once

#include <chrono>
#include <string>

#include "terminal.h"

namespace app {

/// Lines of standard input for a script that asks for them.  Threads: one.
class ScriptInput {
public:
    /// Owns: borrows the descriptor.
    explicit ScriptInput(int descriptor) : descriptor_(descriptor), echo_(descriptor) {}

    /// Whether there is a line to read, or the end. A terminal shows what is typed if `isEchoed`.
    /// Blocks: until there is, for `limit` at most.
    bool wait(bool isEchoed, std::chrono::milliseconds limit);
    /// A line with its newline, or the character that is typed for the end of input. Where there are several
    /// and `mayBeBlock`, all of them: the mark of a block and a JSON array, on one line.
    /// Blocks: until it is there.
    std::string read(bool mayBeBlock);

private:
    bool isComplete() const { return isAtEnd_ || pending_.find('\n') != std::string::npos; }
    void fill();
    std::string takeLines(std::size_t end);

    const int descriptor_;
    std::string pending_;  ///< read already, not yet returned
    bool isAtEnd_ = false;
    Echo echo_;
};

}  // namespace app
