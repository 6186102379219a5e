#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cmddistributor/FEvalIIP.h"
#include "connector/ThreadSafety.h"
#include "events/LocalEventManager.h"
#include "host/Environment.h"
#include "python/CodeRunner.h"
#include "python/InterpreterServices.h"
#include "services/TelemetryFile.h"
#include "services/io/CmdWinSink.h"
#include "standalone/StandaloneHost.h"
#include "thread/Interrupts.h"
#include "thread/PromptReader.h"
#include "thread/RequestQueue.h"

namespace standalone {

class FunctionCaller;
class NativeCapture;
class PythonRuntime;
class TerminalWindow;

/// The interpreter: its thread, its queue, its prompts and its output, behind the host interface.
///
///     starting -> idle (base prompt) <-> running <-> waiting at a prompt of the code -> stopping -> ended
///
/// Threads: the interpreter thread runs everything but the constructor, the destructor and what Environment
/// documents for other threads. Lock order: the interpreter's lock (the GIL) first, then any of the leaf
/// mutexes below it.
class Interpreter : public host::Environment,
                    private InterpreterServices,
                    private IInterpreterBridge,
                    private iqm::Iqm {
public:
    /// Starts the thread.  Blocks: until requests are taken.  Throws: std::runtime_error.
    explicit Interpreter(const HostOptions& options);
    /// Stops it: fails what waits, interrupts what runs, for up to five seconds. Code that does not end even
    /// then ends the process, since nothing of it could be freed safely.
    ~Interpreter() override;

    /// The process's own standard descriptor, beside the captured one.
    int originalDescriptor(int descriptor) const;

    // host::Environment
    std::shared_ptr<zvm::ZVM> currentLocalZVM() override;
    std::shared_ptr<zvm::Session> session() override;
    iqm::Iqm& queueManager() override { return *this; }
    void evaluate(const std::u16string& code, iqm::Workspace& workspace) override;
    bool isCodeBlockComplete(const std::u16string& code) override;
    nmutil::cmddistributor::inExecutionStatus executionStatus() override { return executionStatus_; }
    std::int32_t codeBlockStatus() override { return codeBlockStatus_; }
    boost::optional<std::string> currentBuiltinName() override { return builtinName_; }
    bool isInCompiledExtension() override { return isInCompiledExtension_; }
    IInterpreterBridge* interpreterBridge() override { return this; }
    // Nothing is put off until code has ended: events go out on a thread of their own as they are raised.
    void dispatchPendingInterests() override {}
    nmutil::prompt::InputRequester inputRequester() override { return prompts_.current(); }
    bool isInCharBufferMode() override { return prompts_.isReadingCharacters(); }
    // Never: every prompt of Python code waits without a time limit, and no other asks for input.
    bool isPromptEmergency() override { return false; }
    void typeCodeUnit(char16_t unit) override;
    std::uint64_t windowRows() override { return rows_; }
    std::uint64_t windowColumns() override { return columns_; }
    void setWindowRows(std::uint64_t rows) override { rows_ = validSize(rows, rows_); }
    void setWindowColumns(std::uint64_t columns) override { columns_ = validSize(columns, columns_); }
    void unlocked(const std::function<void()>& action) override;
    int acquireLock() override;
    void releaseLock(int state) override;
    void setLastError(const cmddistributor::RuntimeException& error) override;
    bool isSignalThread() override { return Interrupts::isSignalThread(); }
    bool setInterruptEnabled(bool enabled) override { return queue_->setInterruptEnabled(enabled); }
    bool setInterruptPending(bool pending) override;
    std::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> eventManager(
        const boost::optional<zvm::ZvmID>& id) override;
    cppmicroservices::Framework microservices() override;
    std::vector<cppmicroservices::Bundle> installAndStartBundles(const std::string& path) override;
    bool isDduxEnabled() override { return telemetry_.isEnabled(); }
    connector::Future<std::unique_ptr<connector::ddux::DduxControlResponse>> logEvent(
        std::unique_ptr<connector::ddux::DduxControlMessage> record) override {
        return telemetry_.write(*record);
    }

private:
    class LocalZvm;

    // The thread.
    void threadMain(std::promise<void>& started);
    void serve();
    void runTypeAhead();
    void requestInput();
    void stopCapture();

    // One request.
    void run(std::unique_ptr<QueuedRequest> queued);
    std::unique_ptr<cmddistributor::IIPResult> runRequest(QueuedRequest& queued);
    std::unique_ptr<cmddistributor::IIPResult> runPlugin(QueuedRequest& queued,
                                                         const std::shared_ptr<cmddistributor::IIP>& iip);
    enum class Opens { AtOnce, WhenItRuns };
    void interruptibly(Opens opens, const std::function<void()>& action);
    void prepareCode();
    void tidyUp();
    std::unique_ptr<cmddistributor::IIPResult> runFunctionCall(QueuedRequest& queued,
                                                               const cmddistributor::FEvalIIP& iip);
    bool isInternalCode() const;
    void showFailure(const CodeError& failure);
    void showError(const cmddistributor::RuntimeException& error);

    // What listeners are told.
    void announcePrompt(nmutil::prompt::InputRequester prompt, bool isBaseLevel);
    template <class Event>
    void changeWindow(void (services::io::CmdWinSink::*change)());

    /// Who gets what the calling thread prints, and what it does to the command window.
    enum class Recipient { OwnSink, Capture, Terminal };
    const QueuedRequest* requestOfThread() const;
    Recipient recipient() const;
    bool isCaptured() const;
    /// The command window of the calling thread's code.
    std::shared_ptr<services::io::CmdWinSink> window(bool isError) const;

    // InterpreterServices
    void print(nmutil::io::StreamTypeEnum stream, std::u16string_view text) override;
    bool postText(nmutil::io::StreamTypeEnum stream, std::u16string_view text);
    void tellOfLostText();
    void beforePrint() override;
    ReadResult readLine(nmutil::prompt::InputRequester prompt, std::u16string& line) override;
    ReadResult readKey() override;
    void requireInputAllowed() const;
    void runRequests() override;
    bool takeInterrupt() override;
    void returnInterrupt() override { queue_->returnInterrupt(); }
    void clearWindow() override;
    void moveHome() override;
    bool isHeard(std::u16string_view tag) const override { return events_->isHeard(tag); }
    void postEvent(std::u16string tag, TaggedEvent::Members members, std::size_t bytes) override;
    bool isInterpreterThread() const override { return Interrupts::isSignalThread(); }
    const cmddistributor::RunOptions* runningOptions() const override;

    // IInterpreterBridge: nobody to notify. Requests end through their delegates, and listeners are told of
    // the end of an evaluation by the event of the prompt that follows it.
    void notifyEvalEnd(bool) override {}
    // iqm::Iqm: there is no editor.
    bool isInEditorDebugInputWanted() const override { return false; }

    /// `size`, or `otherwise` where a client asks for a size that no window has.
    static std::uint64_t validSize(std::uint64_t size, std::uint64_t otherwise) {
        return size >= 1 && size <= 100'000 ? size : otherwise;
    }
    /// At the `isEnd` of an evaluation, what looks like the beginning of a character stands for itself.
    void drainOutput(bool isEnd = false);

    const HostOptions options_;
    const int processId_;
    TelemetryFile telemetry_;
    const std::shared_ptr<RequestQueue> queue_;
    const std::shared_ptr<LocalEventManager> events_;
    const std::shared_ptr<LocalZvm> zvm_;
    PromptReader prompts_;

    // Of the interpreter thread.
    unsigned codeDepth_ = 0;  // pieces of code that run inside one another
    std::unique_ptr<NativeCapture> capture_;
    std::shared_ptr<TerminalWindow> terminal_;
    std::unique_ptr<PythonRuntime> python_;
    std::unique_ptr<CodeRunner> runner_;
    std::unique_ptr<FunctionCaller> caller_;
    std::size_t lostText_ = 0;                  // code units that listeners have not been told of
    bool isTypedByStream_ = false;              // what the running code read last
    bool isAside_ = false;                      // a request runs between two steps of other code
    std::vector<const QueuedRequest*> active_;  // innermost last
    nmutil::cmddistributor::inExecutionStatus executionStatus_ = nmutil::cmddistributor::EXECUTION_OK;
    std::int32_t codeBlockStatus_ = 0;
    boost::optional<std::string> builtinName_;  // in which the last error arose
    bool isInCompiledExtension_ = false;
    std::uint64_t columns_;
    std::uint64_t rows_;
    std::uint64_t shownColumns_ = 0;  // what Python code was last told
    std::uint64_t shownRows_ = 0;

    connector::Mutex mutex_;
    std::condition_variable endedChanged_;
    bool hasEnded_ GUARDED_BY(mutex_) = false;

    std::thread thread_;
};

}  // namespace standalone
