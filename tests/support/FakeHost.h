#pragma once

#include <sstream>

#include "host/Environment.h"
#include "nmutil/events.h"
#include "services/io/CmdWinSink.h"
#include "support/FakeCmdDistributor.h"
#include "support/FakeEventMgr.h"

namespace fake {

class FakeZVM : public zvm::ZVM {
public:
    explicit FakeZVM(std::shared_ptr<FakeCmdDistributor> distributor)
        : distributor_(std::move(distributor)) {}

    std::atomic<bool> available{true};
    std::atomic<int> requestInterrupts{0};  ///< on behalf of a request

    zvm::ZvmID id() const override { return 0; }
    bool isAvailable() const override { return available; }
    void interrupt() override { ++distributor_->interrupts; }
    void interrupt(const foundation::msg_svc::exchange::IDType& request) override {
        ++requestInterrupts;
        distributor_->cancel(request, false);
    }
    std::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override { return distributor_; }

private:
    const std::shared_ptr<FakeCmdDistributor> distributor_;
};

/// The host's own command window: keeps what is printed while nothing captures it.
class FakeWindow : public services::io::CmdWinSink,
                   public services::io::CmdWinSinkFactory,
                   public std::enable_shared_from_this<FakeWindow> {
public:
    FakeWindow() : CmdWinSink(std::make_shared<std::basic_stringbuf<char16_t>>()) {}
    std::shared_ptr<services::io::CmdWinSink> getSink(bool) override { return shared_from_this(); }
    std::u16string text() const {
        return static_cast<const std::basic_stringbuf<char16_t>&>(*getUnicodeOutStreamBuffer()).str();
    }
};

/// A host whose state a test sets and whose interpreter is a function. Installed as long as it exists.
///
/// Threads: members without an atomic type are set before the thread that uses them is started.
class FakeHost : public host::Environment, public iqm::Iqm, private IInterpreterBridge {
public:
    FakeHost() {
        services::io::CmdWinSinkHandle::reset();
        services::io::CmdWinSinkHandle::setFactory(window);
        distributor->showError = [this](const RuntimeException& error) {
            services::io::CmdWinSinkHandle::activeSink(false)->doPrintableError(
                std::u16string(error.getText()));
            events->raise(nmutil::io::PrintableErrorEvent(error.getText(), error));
        };
        host::install(this);
    }
    ~FakeHost() override {
        distributor->stopWorker();
        distributor->forget();
        services::io::CmdWinSinkHandle::reset();
        host::install(nullptr);
    }

    /// Whether the calling thread is inside of an action that runs without the interpreter's lock.
    static bool isUnlocked() { return unlockedDepth > 0; }
    void unlocked(const std::function<void()>& action) override {
        ++unlockedDepth;
        action();
        --unlockedDepth;
    }

    const std::shared_ptr<FakeWindow> window = std::make_shared<FakeWindow>();
    const std::shared_ptr<FakeEventMgr> events = std::make_shared<FakeEventMgr>();
    const std::shared_ptr<FakeCmdDistributor> distributor = std::make_shared<FakeCmdDistributor>();
    const std::shared_ptr<FakeZVM> zvm = std::make_shared<FakeZVM>(distributor);

    /// The interpreter. Throws cmddistributor::RuntimeException for code that fails.
    std::function<void(const std::u16string& code)> onEvaluate;

    std::atomic<nmutil::prompt::InputRequester> prompt{nmutil::prompt::BASE_PROMPT};
    std::atomic<bool> charBufferMode{false};
    std::atomic<std::uint64_t> question{0};  // its number
    bool promptEmergency = false;
    bool editorDebugInputWanted = false;
    std::u16string typed;                       ///< written by the interpreter thread
    std::function<void(char16_t unit)> onType;  ///< called first, and may throw

    nmutil::cmddistributor::inExecutionStatus status = nmutil::cmddistributor::EXECUTION_OK;
    std::int32_t blockStatus = 0;
    std::function<void()> onStatusQuery;  ///< called first, and may throw
    boost::optional<std::string> builtinName;
    bool inCompiledExtension = false;
    std::uint64_t rows = 24;
    std::uint64_t columns = 80;
    std::function<void(std::uint64_t rows)> onSetRows;  ///< called first, and may throw
    bool interruptEnabled = false;
    bool hasEventManager = true;

    std::atomic<bool> dduxEnabled{false};
    std::function<void()> onDduxQuery;     ///< called first, and may throw
    std::vector<std::string> dduxRecords;  ///< each as its source, name and payload

    /// What the plug-in told the host, in order: "evalEnd", "interests".
    std::vector<std::string> calls;
    std::function<void()> onPendingInterests;

    /// Prints as running code does: to the sinks of the running request, else to the active command window.
    void print(std::u16string_view text, bool isError = false) {
        std::shared_ptr<nmutil::io::NMSink> sink;
        if (const auto* request = distributor->runningRequest()) {
            sink = isError ? request->getErrorSink() : request->getOutputSink();
        }
        if (!sink) sink = services::io::CmdWinSinkHandle::activeSink(isError);
        sink->getUnicodeOutStreamBuffer()->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    }

private:
    static inline thread_local int unlockedDepth = 0;
    bool isInEditorDebugInputWanted() const override { return editorDebugInputWanted; }
    void notifyEvalEnd(bool atPrompt) override {
        if (atPrompt) calls.emplace_back("evalEnd");
    }

    std::shared_ptr<zvm::ZVM> currentLocalZVM() override { return zvm; }
    std::shared_ptr<zvm::Session> session() override { return nullptr; }
    iqm::Iqm& queueManager() override { return *this; }
    void evaluate(const std::u16string& code, iqm::Workspace&) override {
        if (onEvaluate) onEvaluate(code);
    }
    bool isCodeBlockComplete(const std::u16string&) override { return true; }
    nmutil::cmddistributor::inExecutionStatus executionStatus() override { return status; }
    std::int32_t codeBlockStatus() override {
        if (onStatusQuery) onStatusQuery();
        return blockStatus;
    }
    boost::optional<std::string> currentBuiltinName() override { return builtinName; }
    bool isInCompiledExtension() override { return inCompiledExtension; }
    IInterpreterBridge* interpreterBridge() override { return this; }
    void dispatchPendingInterests() override {
        calls.emplace_back("interests");
        if (onPendingInterests) onPendingInterests();
    }

    nmutil::prompt::InputRequester inputRequester() override { return prompt; }
    bool isInCharBufferMode() override { return charBufferMode; }
    std::uint64_t promptNumber() override { return question; }
    bool isEchoed() override { return true; }
    bool isPromptEmergency() override { return promptEmergency; }
    void typeCodeUnit(char16_t unit) override {
        if (onType) onType(unit);
        typed += unit;
    }
    std::uint64_t windowRows() override { return rows; }
    std::uint64_t windowColumns() override { return columns; }
    void setWindowRows(std::uint64_t value) override {
        if (onSetRows) onSetRows(value);
        rows = value;
    }
    void setWindowColumns(std::uint64_t value) override { columns = value; }

    bool isSignalThread() override { return false; }
    bool setInterruptEnabled(bool enabled) override { return std::exchange(interruptEnabled, enabled); }
    bool setInterruptPending(bool) override { return false; }
    std::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> eventManager(
        const boost::optional<zvm::ZvmID>& id) override {
        return hasEventManager && id.value_or(0) == 0 ? events : nullptr;
    }

    bool isDduxEnabled() override {
        if (onDduxQuery) onDduxQuery();
        return dduxEnabled;
    }
    // Records fail, which nobody may wait for.
    connector::Future<std::unique_ptr<connector::ddux::DduxControlResponse>> logEvent(
        std::unique_ptr<connector::ddux::DduxControlMessage> record) override {
        dduxRecords.push_back(record->source() + ' ' + record->eventName() + ' ' + record->payload());
        return Environment::logEvent(std::move(record));
    }
};

}  // namespace fake
