#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <boost/optional.hpp>

#include "capabilities/capabilities.h"
#include "nmutil/io/NMSink.h"

namespace cmddistributor {

/// At which state of the interpreter a request may be taken from the queue.
enum class WhenToDequeue : std::int32_t {
    Default = 0,         ///< at the base prompt, in order of arrival
    Ppe = 1,             ///< at any prompt, and while code runs
    Pause = 2,           ///< at the base prompt or while paused
    Prompt = 3,          ///< at any prompt
    NonDebugPrompt = 4,  ///< at any prompt but a debug prompt
    DebugPrompt = 5,     ///< at a debug prompt only
    Idle = 6,            ///< at the base prompt, when nothing else is queued
};

}  // namespace cmddistributor

namespace nmutil::io {
class PrintableErrorEvent;
}

namespace cmddistributor {

/// How one request is to be run. A value: copied and moved freely, no locks.
class RunOptions {
public:
    using PrintableErrorCallback = std::function<void(const nmutil::io::PrintableErrorEvent&)>;

    RunOptions() = default;
    /// `source` is the name under which the code appears in messages.
    explicit RunOptions(WhenToDequeue when, boost::optional<std::u16string> source = boost::none);
    /// Output and error text go to the given buffers, not to the active command window.
    RunOptions(std::shared_ptr<nmutil::io::UnicodeStreamBuf> out,
               std::shared_ptr<nmutil::io::UnicodeStreamBuf> err, WhenToDequeue when,
               nmutil::io::SinkTraits outTraits, nmutil::io::SinkTraits errTraits);

    /// The sink for output, or for text on standard error. Null: the active command-window sink.
    const std::shared_ptr<nmutil::io::NMSink>& getOutSink() const { return outSink_; }
    const std::shared_ptr<nmutil::io::NMSink>& getErrSink() const { return errSink_; }
    void setOutSink(std::shared_ptr<nmutil::io::NMSink> sink) { outSink_ = std::move(sink); }
    void setErrSink(std::shared_ptr<nmutil::io::NMSink> sink) { errSink_ = std::move(sink); }

    WhenToDequeue whenToDequeue() const { return when_; }
    const boost::optional<std::u16string>& source() const { return source_; }

    /// None where the client has not said what it can do; an empty list says that it can do nothing.
    const boost::optional<capabilities::CapabilityList>& capabilities() const { return capabilities_; }
    void setCapabilities(capabilities::CapabilityList list) { capabilities_ = std::move(list); }

    /// The handle of the context that is current on the interpreter thread while the request runs, as
    /// connector::zvm_common::pushContextState gave it; 0 for an empty context.
    std::uint64_t contextHandle() const { return contextHandle_; }
    void setContextHandle(std::uint64_t handle) { contextHandle_ = handle; }

    /// While the request runs, an error that is to be shown goes to `callback`, on the interpreter thread,
    /// and nowhere else.
    void setCallbackImpl(PrintableErrorCallback callback) { printableError_ = std::move(callback); }
    const PrintableErrorCallback& printableErrorCallback() const { return printableError_; }

    static nmutil::io::SinkTraits getDefaultSinkTraits() { return {}; }

private:
    WhenToDequeue when_ = WhenToDequeue::Default;
    boost::optional<std::u16string> source_;
    std::shared_ptr<nmutil::io::NMSink> outSink_;
    std::shared_ptr<nmutil::io::NMSink> errSink_;
    boost::optional<capabilities::CapabilityList> capabilities_;
    std::uint64_t contextHandle_ = 0;
    PrintableErrorCallback printableError_;
};

}  // namespace cmddistributor
