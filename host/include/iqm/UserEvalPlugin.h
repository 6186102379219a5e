#pragma once

#include <string>
#include <string_view>

#include "cmddistributor/EvalIIP.h"
#include "iqm/BaseIqmPlugin.h"

namespace iqm {

/// Access to the interpreter proper, for plug-ins.
class InternalEvalPlugin {
public:
    /// Runs `code` in `workspace` and displays the value of a last expression.
    /// Threads: the interpreter thread.  Throws: cmddistributor::RuntimeException.
    static void inEvalCmdWithLocalReturn(const std::u16string& code, Workspace& workspace);

    /// False when `code` ends inside an open block; code with an error elsewhere counts as complete.
    /// Threads: the interpreter thread.
    static bool inIsCodeBlockComplete(const std::u16string& code);
};

/// Runs the code of one evaluation that a user asked for.
class UserEvalPlugin : public IqmPlugin<cmddistributor::EvalIIP> {
public:
    explicit UserEvalPlugin(PluginOptions options) : IqmPlugin(std::move(options)) {}

    void execute(Workspace& workspace) override;
    virtual bool hasMoreCmds() const { return !given_; }
    /// The next piece of code to run.
    virtual std::u16string getNextCommand();

private:
    bool given_ = false;
};

}  // namespace iqm
