#pragma once

#include <chrono>
#include <string>

namespace app {

/// Lines of standard input for a script that asks for them.  Threads: one.
class ScriptInput {
public:
    /// Owns: borrows the descriptor.
    explicit ScriptInput(int descriptor) : descriptor_(descriptor) {}
    ~ScriptInput() { echo(true); }
    ScriptInput(const ScriptInput&) = delete;
    ScriptInput& operator=(const ScriptInput&) = delete;

    /// Whether there is something to read. A terminal shows what is typed if `isEchoed`.
    /// Blocks: until there is, for `limit` at most.
    bool wait(bool isEchoed, std::chrono::milliseconds limit);
    /// A line with its newline, or the character that is typed for the end of input. Where there are several
    /// and `mayBeBlock`, all of them: the mark of a block and a JSON array, on one line.
    /// Blocks: until it is there.
    std::string read(bool mayBeBlock);

private:
    void echo(bool isOn);
    std::string takeLines(std::size_t end);

    const int descriptor_;
    std::string pending_;  ///< read already, not yet returned
    bool isEchoed_ = true;
};

}  // namespace app
