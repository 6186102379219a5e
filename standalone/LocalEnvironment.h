#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/Environment.h"
#include "services/LocalConfiguration.h"
#include "services/TelemetryFile.h"
#include "standalone/HostOptions.h"
#include "thread/InterpreterThread.h"

namespace standalone {

/// The interpreter thread and its surroundings behind the host interface.
///
/// Threads: as host::Environment documents for each operation.
class LocalEnvironment : public host::Environment, private IInterpreterBridge, private iqm::Iqm {
public:
    /// Starts the interpreter, which installs this.
    /// Blocks: until requests are taken.  Throws: std::runtime_error.
    LocalEnvironment(const HostOptions& options, std::shared_ptr<LocalConfiguration> configuration);

    /// The process's own standard descriptor, beside the captured one.
    int originalDescriptor(int descriptor) { return thread_.window().originalDescriptor(descriptor); }

    /// As StandaloneHost documents.
    std::chrono::milliseconds deafFor() { return thread_.heartbeat().deafFor(); }

    std::shared_ptr<zvm::ZVM> currentLocalZVM() override { return thread_.zvm(); }
    std::shared_ptr<zvm::Session> session() override { return thread_.zvm(); }

    iqm::Iqm& queueManager() override { return *this; }
    void evaluate(const std::u16string& code, iqm::Workspace&) override { thread_.runner().evaluate(code); }
    bool isCodeBlockComplete(const std::u16string& code) override {
        return thread_.runner().isComplete(code);
    }
    nmutil::cmddistributor::inExecutionStatus executionStatus() override { return status().execution; }
    std::int32_t codeBlockStatus() override { return status().block; }
    boost::optional<std::string> currentBuiltinName() override { return status().builtin; }
    bool isInCompiledExtension() override { return status().isInCompiledExtension; }
    IInterpreterBridge* interpreterBridge() override { return this; }
    // Nothing is put off until code has ended: events go out on a thread of their own as they are raised.
    void dispatchPendingInterests() override {}

    nmutil::prompt::InputRequester inputRequester() override { return thread_.prompts().current(); }
    bool isInCharBufferMode() override { return thread_.prompts().isReadingCharacters(); }
    std::uint64_t promptNumber() override { return thread_.prompts().number(); }
    bool isEchoed() override { return thread_.prompts().isEchoed(); }
    // Never: every prompt of Python code waits without a time limit, and no other asks for input.
    bool isPromptEmergency() override { return false; }
    void typeCodeUnit(char16_t unit) override;
    std::uint64_t windowRows() override { return thread_.window().size().rows; }
    std::uint64_t windowColumns() override { return thread_.window().size().columns; }
    void setWindowRows(std::uint64_t rows) override { thread_.window().setRows(rows); }
    void setWindowColumns(std::uint64_t columns) override { thread_.window().setColumns(columns); }

    void unlocked(const std::function<void()>& action) override;
    int acquireLock() override;
    void releaseLock(int state) override;

    void setLastError(const cmddistributor::RuntimeException& error) override {
        thread_.python().setLastError(error);
    }

    bool isSignalThread() override { return Interrupts::isSignalThread(); }
    bool setInterruptEnabled(bool enabled) override { return thread_.queue().setInterruptEnabled(enabled); }
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
    const CodeStatus& status() { return thread_.runner().status(); }

    // IInterpreterBridge: nobody to notify. Requests end through their delegates, and listeners are told of
    // the end of an evaluation by the event of the prompt that follows it.
    void notifyEvalEnd(bool) override {}
    // iqm::Iqm: there is no editor.
    bool isInEditorDebugInputWanted() const override { return false; }

    const std::shared_ptr<LocalConfiguration> configuration_;
    TelemetryFile telemetry_;
    const std::unique_ptr<connector::reactive_streams::Canceller> telemetryChanges_;
    InterpreterThread thread_;  // last: it uses the rest
};

}  // namespace standalone
