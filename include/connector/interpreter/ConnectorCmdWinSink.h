#pragma once

#include <memory>
#include <string>

#include "connector/Promise.h"
#include "connector/interpreter/ConnectorCmdWinBuffer.h"
#include "connector/interpreter/ConnectorExecutionStatuses.h"
#include "services/io/CmdWinSink.h"

namespace numora::lang::correction {
class SuggestionEvent;
}

namespace connector::interpreter {

/// The command window of captured evaluations: collects what the interpreter prints and reports while at
/// least one evaluation is open, and resolves each evaluation's promise once, at its own level.
///
/// Evaluations nest, so what is kept is kept once for the process: N open levels, S pops that must not
/// resolve because their level was answered early, and P promises, the newest first.
///
///     idle (N=0)        preEval      N=1, P=1       sink installed, suggestions subscribed
///     open              preEval      N+1, P+1
///     open, S=0, P>=1   postEval     N-1, P-1       newest promise resolved
///     open, S>=1        postEval     N-1, S-1       nothing resolved
///     P>=1              doSkipLevel  S+1, P-1       newest promise resolved now
///     N reaches 0       postEval     idle           previous sink restored, suggestions no longer subscribed
///
/// Threads: the interpreter thread, or any thread that holds the interpreter's lock, but for getInstance
/// and getFactory (any) and for suggestionCallback (the event manager's). Locks: the sink's mutex guards the
/// making of the instances, the suggestion, and the end of a level. It is not held while a promise is
/// resolved or a subscription ends: a continuation may use the sink, and the suggestion handler, for which
/// ending its subscription waits, takes the mutex.
class ConnectorCmdWinSink : public services::io::CmdWinSink {
public:
    /// The sink for errors or for output; both are made at the first call and stay.
    static std::shared_ptr<ConnectorCmdWinSink> getInstance(bool isError);
    /// A new factory that hands out these sinks.
    static std::shared_ptr<services::io::CmdWinSinkFactory> getFactory();

    /// Opens a level that is answered through `promise`, which must not be null, and lets interrupts through.
    /// Throws: what the host throws, with the level not opened.
    static void preEval(std::shared_ptr<Promise<ConnectorExecutionStatuses>> promise);
    /// Takes back the newest level, of an evaluation that cannot begin, and leaves its promise alone.
    static void abandonEval();
    /// Closes the newest level. Nothing happens when none is open.
    /// Throws: std::runtime_error "Promise already resolved." when somebody else has answered, and what a
    /// continuation of the promise throws; the level is closed all the same.
    static void postEval();
    /// Closes the levels that still have a promise, the failing ones too.
    /// Throws: as postEval, the first failure, at the end.
    static void shutdown();

    /// Adds a fault to the newest level.
    static void addFault(common::v1::Fault fault);

    bool supportsHotlinks() const override { return true; }

    void ctrlCProcessed() override;
    /// Discards the text of the level so far.
    void doClc() override;
    void doHome() override;
    void keyStrokeRequested(const nmutil::prompt::InputRequester&) override {}
    /// True when the prompt has changed, text was shown, or the prompt is urgent; never at the base prompt.
    bool isInputRequestNecessary() override;
    /// Answers the newest evaluation with what it has produced so far, if a prompt has to be announced.
    /// Throws: as postEval.
    void requestInput() override;
    /// Adds `text` to the error text of the level.
    void doPrintableError(std::u16string&& text) override;
    /// False while every open level has been answered, as that of code that waits for input.
    bool isWaitedFor() const override;

protected:
    explicit ConnectorCmdWinSink(std::shared_ptr<nmutil::io::UnicodeStreamBuf> buffer)
        : CmdWinSink(std::move(buffer)) {}

    static void pushNesting();
    static void popNesting();
    static void doSkipLevel();
    static void doDone();
    /// The newest evaluation has ended in an error that its user is told of.
    static void errorProcessed();
    static void suggestionCallback(const numora::lang::correction::SuggestionEvent& event);

    /// For tests: everything as it was when the library was loaded. Open levels are dropped without an
    /// answer, and the host's stack of command windows is left alone.
    static void resetForTests();

private:
    friend class ConnectorEvalPlugin;  // reports errors
};

}  // namespace connector::interpreter
