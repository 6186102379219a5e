#pragma once

#include <cstdint>
#include <string>

#include <boost/optional.hpp>

#include "cmddistributor/RuntimeException.h"

/// What is notified when an evaluation is over.
class IInterpreterBridge {
public:
    virtual ~IInterpreterBridge() = default;
    /// Threads: the interpreter thread.
    virtual void notifyEvalEnd(bool atPrompt) = 0;
};

class IInterpreter {
public:
    /// Never null while an environment is installed.  Threads: the interpreter thread.
    static IInterpreterBridge* GetInterpreterBridge();
};

/// Runs what the interpreter put off until code is no longer running.  Threads: the interpreter thread.
void inDispatchPendingInterests();

/// The name of the builtin function in which the error of the evaluation that ended last, or is ending,
/// arose, as far as that can be told. Threads: the interpreter thread.
boost::optional<std::string> mdGetCurrentBuiltinFcnName();

/// Whether that error arose inside a function of a compiled extension.  Threads: the interpreter thread.
bool mdInAMexFile();

/// How the evaluation that runs, or else the last one, went so far.  Threads: the interpreter thread.
nmutil::cmddistributor::inExecutionStatus mnGetExecutionStatus();

/// 0 when the code was complete, 1 when it ended inside an open block.  Threads: the interpreter thread.
std::int32_t mnGetCodeBlockStatus();
