#pragma once

#include <string>

#include "Evaluation.h"
#include "PlainLines.h"

namespace app {

/// A session of plain lines with an interpreter.
///
/// A block of code is collected until it is complete; the interpreter says so by running it. Where running
/// code asks for input, the next line is its answer. When the interpreter dies, the next line is of another
/// life.
class Console {
public:
    /// Owns: borrows both.
    Console(Session& session, PlainLines& lines);

    /// Reads and runs lines until there are no more.  Blocks: as long.
    void run();

private:
    std::string prompt() const;
    void enter(const std::string& line);
    void finish();
    void evaluate(const std::string& code);
    void show(Evaluation evaluation);
    bool isEchoWanted();
    Poco::JSON::Object::Ptr send(const std::string& code);

    Session& session_;
    PlainLines& lines_;
    const bool clears_;  ///< whether there is a screen to clear
    std::string block_;  ///< the lines of a block that is not complete yet
    std::string inputPrompt_;
    bool isEchoed_ = true;
    Evaluation::Wants wants_ = Evaluation::Wants::Code;
};

}  // namespace app
