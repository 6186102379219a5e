#pragma once

#include <string>
#include <vector>

#include "Session.h"
#include "terminal.h"

namespace app {

/// One evaluation's outcome.
struct Evaluation {
    /// What the interpreter takes next.
    enum class Wants {
        Code,
        Input,        ///< a line for the code that waits
        RestOfBlock,  ///< the code ended inside an open block and was not run
    };

    std::string text;
    std::vector<std::string> faults;  ///< each as "code: message", and that it was not run
    bool failed = false;
    bool clearWindow = false;
    Wants wants = Wants::Code;
};

struct EvaluationSettings {
    WindowSize window;
    int timeoutSeconds = 0;  ///< 0: none
};

/// Evaluates `code`, or types it where the interpreter waits for input, and returns the response message.
/// Blocks: until the code has run or waits for input.
Poco::JSON::Object::Ptr sendEval(Session& session, const std::string& code,
                                 const EvaluationSettings& settings);

/// What the response to `code`, empty when it was typed, says. To be called before the next request, because
/// not every prompt can be told by its type.
Evaluation outcomeOf(Session& session, const std::string& code, const Poco::JSON::Object& response);

/// Writes a successful evaluation's text to standard output, a failed one's and every fault to standard
/// error. Throws: as writeAll.
void print(const Evaluation& evaluation, const StandardStreams& streams);

}  // namespace app
