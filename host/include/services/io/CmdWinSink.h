#pragma once

#include <memory>
#include <string>

#include "nmutil/io/NMSink.h"
#include "nmutil/prompt/InputRequester.h"

namespace services::io {

/// A command window: the destination of what the interpreter prints, which is also told what happens there.
/// The base ignores what it is told.
///
/// Threads: as nmutil::io::NMSink.
class CmdWinSink : public nmutil::io::NMSink {
public:
    using NMSink::NMSink;

    /// An interrupt has reached the running code.
    virtual void ctrlCProcessed() {}
    /// The code clears the command window, or moves its cursor home.
    virtual void doClc() {}
    virtual void doHome() {}
    /// The interpreter waits for single key strokes.
    virtual void keyStrokeRequested(const nmutil::prompt::InputRequester&) {}
    /// Whether the prompt that is shown now has to be announced.
    virtual bool isInputRequestNecessary() { return false; }
    /// The interpreter is about to wait for input.
    virtual void requestInput() {}
    /// The text of an error that ended the running code.
    virtual void doPrintableError(std::u16string&&) {}
    /// Whether somebody waits for what is shown here. Where not, it belongs in the host's own window.
    virtual bool isWaitedFor() const { return true; }
};

/// Makes the sinks of one kind of command window.
class CmdWinSinkFactory {
public:
    virtual ~CmdWinSinkFactory() = default;
    /// The sink for errors or for output. Never null.
    virtual std::shared_ptr<CmdWinSink> getSink(bool isError) = 0;
};

/// The process-wide stack of command windows. The newest is the active one.
///
/// Threads: as nmutil::io::NMSink; there is no lock of its own.
class CmdWinSinkHandle {
public:
    static void setFactory(const std::shared_ptr<CmdWinSinkFactory>& factory);
    /// Does nothing when only the first factory, the host's own, is left.
    static void restorePreviousFactory();

    /// For the host: the active sink for errors or for output; null before any factory is set.
    static const std::shared_ptr<CmdWinSink>& activeSink(bool isError);
    /// For the host: forgets every factory, so that the next one set is the first again.
    static void reset();
};

}  // namespace services::io
