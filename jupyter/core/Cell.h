#pragma once

#include <string>

#include "InputRequests.h"
#include "Job.h"
#include "Lifetime.h"
#include "jupyter/Interpreter.h"

namespace jupyter {

class History;

/// Counts the cells of a kernel.
struct CellCount {
    std::uint64_t last = 0;    ///< of the cell that used one up last
    std::uint64_t others = 0;  ///< after that, that have used up none
};

/// An execute_request.
///
///     waits -- begin --> runs -- completion --+--> its user_expressions -- their values --> ended
///       |                  |                  '-- an error, or none of these -------------> ended
///       '-- abort          '-- refused ---------------------------------------------------> ended
///
/// Threads: on the kernel's executor.
class Cell : public Job {
public:
    struct Parts {
        Interpreter& interpreter;
        Publisher& publisher;
        InputRequests& inputs;
        History& history;
        CellCount& count;
        bool isShared;  ///< the end of the kernel is not for its code to ask for
    };

    /// Throws: dispatch::BadMessage.
    Cell(const Parts& parts, RequestPtr request, Ended ended);

    /// Replies that it is not run.
    void abort() { parts_.publisher.abort(*request()); }

    bool isCell() const override { return true; }
    void begin() override;
    void take(const InterpreterEvent& event) override;
    void noteInterrupt() override { isInterrupted_ = true; }

private:
    void takePayload(const InterpreterEvent& event);
    void complete(const InterpreterEvent& event);
    void evaluateExpressions();
    void succeed(const std::string& expressions);
    void fail();
    void fail(ErrorText error);
    Publisher::Members replyMembers(const std::string& expressions);

    const Parts parts_;
    const Ended ended_;
    std::string code_, expressions_;  // JSON
    bool isSilent_, storesHistory_, allowsInput_, stopsOnError_;
    bool isInterrupted_ = false, endsKernel_ = false;
    std::string death_;
    std::string started_;
    const Lifetime lifetime_;
};

}  // namespace jupyter
