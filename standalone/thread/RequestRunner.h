#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <boost/optional.hpp>

#include "cmddistributor/IIP.h"
#include "cmddistributor/RuntimeException.h"
#include "output/CommandWindow.h"
#include "output/PlacedEvents.h"
#include "output/RunningRequests.h"
#include "python/CodeRunner.h"
#include "python/FunctionCaller.h"
#include "standalone/HostObserver.h"
#include "thread/EvaluationEvents.h"
#include "thread/PromptReader.h"
#include "thread/RequestQueue.h"

namespace standalone {

class PythonRuntime;

/// How the piece of code that ended last, or is ending, has ended.
struct CodeStatus {
    nmutil::cmddistributor::inExecutionStatus execution = nmutil::cmddistributor::EXECUTION_OK;
    std::int32_t block = 0;                // 1 for an open one
    boost::optional<std::string> builtin;  // in which the last error arose
    bool isInCompiledExtension = false;
};

/// Runs requests and code on the interpreter thread, one inside the other: at prompts, and between two steps
/// of other code.
///
/// Each piece of code is marked as such in the queue while it runs, so that interrupts can be meant for it.
///
/// Threads: the interpreter thread with the interpreter's lock.
/// Locks: the queue's for its marks; code, delegates and callbacks run without it.
/// Owns: borrows all that it is made with.
class RequestRunner {
public:
    RequestRunner(RequestQueue& queue, PromptReader& prompts, RunningRequests& running, CommandWindow& window,
                  const Announcements& announcements, PlacedEvents& events, PythonRuntime& python,
                  HostObserver* observer);

    /// Runs a request that was taken from the queue, and ends it there.
    void run(std::unique_ptr<QueuedRequest> queued);
    /// Runs those that may run between two steps of code, unless one already does. The debugger and profilers
    /// of that code do not see them.
    void runBetweenSteps();
    /// Runs code, and shows its error.  Throws: cmddistributor::RuntimeException, that error.
    void evaluate(const std::u16string& code);
    /// Runs what was typed and not read by the code that it was meant for, as at any terminal.
    void runTypeAhead();

    /// Tells the running code of its interrupts, and of other signals. False when that has raised an
    /// exception, which is set then.
    bool checkInterrupts();

    bool isComplete(const std::u16string& code) { return codeRunner_.isComplete(code); }
    const CodeStatus& status() const { return status_; }
    /// Of what runs around the innermost call of a function.
    InterpreterState state() const;

private:
    using Result = std::unique_ptr<cmddistributor::IIPResult>;
    enum class Opens { AtOnce, WhenItRuns };

    Result runRequest(QueuedRequest& queued);
    Result runPlugin(QueuedRequest& queued, const std::shared_ptr<cmddistributor::IIP>& iip);
    Result runFunctionCall(QueuedRequest& queued, const cmddistributor::FEvalIIP& iip);
    void prepareCode();
    void interruptibly(Opens opens, const std::function<void()>& action);
    void cleanUp();
    void setStatus(const boost::optional<CodeError>& error, bool isIncomplete);
    CodeRunner::Kind kindOfCode() const;
    void tellObserver() const;

    RequestQueue& queue_;
    PromptReader& prompts_;
    RunningRequests& running_;
    CommandWindow& window_;
    const Announcements& announcements_;
    PlacedEvents& events_;
    PythonRuntime& python_;
    HostObserver* const observer_;  // may be null
    CodeRunner codeRunner_;
    FunctionCaller caller_;
    const EvaluationEvents* evaluation_ = nullptr;  // the innermost
    unsigned depth_ = 0;                            // pieces of code that run inside one another
    CodeStatus status_;
    WindowSize shownSize_{0, 0};  // what Python code was last told
};

}  // namespace standalone
