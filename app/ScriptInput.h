#pragma once

#include <chrono>
#include <string>

namespace app {

/// Lines of standard input for code that asks for them.  Threads: one.
class ScriptInput {
public:
    /// Owns: borrows the descriptor.
    explicit ScriptInput(int descriptor) : descriptor_(descriptor) {}

    /// Whether there is something to read.  Blocks: until there is, for `limit` at most.
    bool wait(std::chrono::milliseconds limit) const;
    /// A line with its newline, or the character that is typed for the end of input.  Blocks: until it is
    /// there.
    std::string readLine();

private:
    const int descriptor_;
    std::string pending_;  ///< read already, not yet returned
};

}  // namespace app
