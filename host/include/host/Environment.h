#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/optional.hpp>

#include "cmddistributor/RuntimeException.h"
#include "connector/ddux/ddux.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "interpreter/IInterpreter.h"
#include "iqm/Iqm.h"
#include "iqm/plugins.h"
#include "nmutil/prompt/InputRequester.h"
#include "zvm/ZVM.h"

namespace cppmicroservices {
class Bundle;
class Framework;
}  // namespace cppmicroservices

namespace host {

/// What an environment supplies behind the free functions and static members of this interface. Each
/// operation is documented with the function that it stands behind, and is called on the threads named there.
///
/// One environment is installed at a time. It is installed before the services above it start, and taken away
/// after they have stopped; the functions throw std::logic_error in between.
class Environment {
public:
    virtual ~Environment() = default;

    // zvm::
    virtual std::shared_ptr<zvm::ZVM> currentLocalZVM() = 0;
    virtual std::shared_ptr<zvm::Session> session() = 0;

    // iqm:: and the state of the interpreter
    virtual iqm::Iqm& queueManager() = 0;
    virtual void evaluate(const std::u16string& code, iqm::Workspace& workspace) = 0;
    virtual bool isCodeBlockComplete(const std::u16string& code) = 0;
    virtual nmutil::cmddistributor::inExecutionStatus executionStatus() = 0;
    virtual std::int32_t codeBlockStatus() = 0;
    virtual boost::optional<std::string> currentBuiltinName() = 0;
    virtual bool isInCompiledExtension() = 0;
    virtual IInterpreterBridge* interpreterBridge() = 0;
    virtual void dispatchPendingInterests() = 0;

    // services::
    virtual nmutil::prompt::InputRequester inputRequester() = 0;
    virtual bool isInCharBufferMode() = 0;
    virtual std::uint64_t promptNumber() = 0;
    virtual bool isEchoed() = 0;
    virtual bool isPromptEmergency() = 0;
    virtual void typeCodeUnit(char16_t unit) = 0;
    virtual std::uint64_t windowRows() = 0;
    virtual std::uint64_t windowColumns() = 0;
    virtual void setWindowRows(std::uint64_t rows) = 0;
    virtual void setWindowColumns(std::uint64_t columns) = 0;

    // locks, for an environment that has one for its interpreter; what acquireLock returns goes to
    // releaseLock
    virtual void unlocked(const std::function<void()>& action) { action(); }
    virtual int acquireLock() { return 0; }
    virtual void releaseLock(int /*state*/) {}

    // MException::, for an environment that keeps the last error
    virtual void setLastError(const cmddistributor::RuntimeException& /*error*/) {}

    // interrupts
    virtual bool isSignalThread() = 0;
    virtual bool setInterruptEnabled(bool enabled) = 0;
    virtual bool setInterruptPending(bool pending) = 0;

    // nmutil::eventmgr::
    virtual std::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> eventManager(
        const boost::optional<zvm::ZvmID>& id) = 0;

    // foundation::cppmicroservices::, for an environment that has a framework; the others throw
    // std::logic_error
    virtual cppmicroservices::Framework microservices();
    virtual std::vector<cppmicroservices::Bundle> installAndStartBundles(const std::string& path);

    // connector::ddux::, for an environment that keeps telemetry
    virtual bool isDduxEnabled() { return false; }
    virtual connector::Future<std::unique_ptr<connector::ddux::DduxControlResponse>> logEvent(
        std::unique_ptr<connector::ddux::DduxControlMessage> record);
};

/// Installs `environment`, or takes the installed one away when null.
/// Threads: one at a time, with no operation of the interface under way.  Owns: nothing; the environment
/// outlives its installation.
void install(Environment* environment);

/// The installed environment.  Throws: std::logic_error, when there is none.  Threads: any.
Environment& environment();

/// The same, or null.
Environment* installedEnvironment();

/// Runs `action`, which waits or calls foreign code, with the interpreter's lock released if this thread
/// holds it.  Threads: any.
void unlocked(const std::function<void()>& action);

}  // namespace host
