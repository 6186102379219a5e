#include "host/Environment.h"

#include <atomic>
#include <stdexcept>

#include "foundation/cppmicroservices/framework.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "interpreter/IInterpreter.h"
#include "iqm/Iqm.h"
#include "iqm/plugins.h"
#include "services/interrupts.h"
#include "services/window.h"
#include "zvm/ZVM.h"

namespace host {

namespace {

std::atomic<Environment*> installed{nullptr};

}  // namespace

void install(Environment* environment) { installed.store(environment); }

Environment* installedEnvironment() { return installed.load(std::memory_order_acquire); }

Environment& environment() {
    Environment* environment = installedEnvironment();
    if (environment == nullptr) throw std::logic_error("No interpreter environment is installed.");
    return *environment;
}

void unlocked(const std::function<void()>& action) {
    Environment* const environment = installedEnvironment();
    if (environment != nullptr) {
        environment->unlocked(action);
    } else {
        action();
    }
}

cppmicroservices::Framework Environment::microservices() {
    throw std::logic_error("This environment has no framework of services.");
}
std::vector<cppmicroservices::Bundle> Environment::installAndStartBundles(const std::string&) {
    throw std::logic_error("This environment has no framework of services.");
}

}  // namespace host

// What follows hands each operation of the interface to the environment that is installed.

std::shared_ptr<zvm::ZVM> zvm::Factory::getCurrentLocalZVM() {
    host::Environment* environment = host::installedEnvironment();
    return environment != nullptr ? environment->currentLocalZVM() : nullptr;
}

std::shared_ptr<zvm::Session> zvm::ProcessSession::session() {
    host::Environment* environment = host::installedEnvironment();
    return environment != nullptr ? environment->session() : nullptr;
}

iqm::Iqm& iqm::Iqm::instance() { return host::environment().queueManager(); }
iqm::Iqm& iqm::Iqm::getInstance(nmutil::contextmgr::NcrID ncr) {
    if (ncr == nmutil::contextmgr::NcrID()) return instance();
    throw std::runtime_error("There is no interpreter " + std::to_string(ncr.value) + ".");
}

void iqm::InternalEvalPlugin::inEvalCmdWithLocalReturn(const std::u16string& code, Workspace& workspace) {
    host::environment().evaluate(code, workspace);
}
bool iqm::InternalEvalPlugin::inIsCodeBlockComplete(const std::u16string& code) {
    return host::environment().isCodeBlockComplete(code);
}

nmutil::cmddistributor::inExecutionStatus mnGetExecutionStatus() {
    return host::environment().executionStatus();
}
std::int32_t mnGetCodeBlockStatus() { return host::environment().codeBlockStatus(); }

IInterpreterBridge* IInterpreter::GetInterpreterBridge() { return host::environment().interpreterBridge(); }
void inDispatchPendingInterests() { host::environment().dispatchPendingInterests(); }
boost::optional<std::string> mdGetCurrentBuiltinFcnName() { return host::environment().currentBuiltinName(); }
bool mdInAMexFile() { return host::environment().isInCompiledExtension(); }

nmutil::prompt::InputRequester services::prompt::getInputRequester() {
    return host::environment().inputRequester();
}
std::uint64_t services::prompt::promptNumber() { return host::environment().promptNumber(); }
bool services::prompt::isEchoed() { return host::environment().isEchoed(); }
bool services::prompt::detail::isInCharBufferMode() { return host::environment().isInCharBufferMode(); }
bool services::PromptHolder::isEmergency() { return host::environment().isPromptEmergency(); }
void services::io::rawModeCharHandler(int codeUnit) {
    host::environment().typeCodeUnit(static_cast<char16_t>(codeUnit));
}

std::uint64_t ioGetNumWindowRows() { return host::environment().windowRows(); }
std::uint64_t ioGetNumWindowColumns() { return host::environment().windowColumns(); }
std::uint64_t ioSetNumWindowRows(std::uint64_t rows) {
    const std::uint64_t previous = ioGetNumWindowRows();
    host::environment().setWindowRows(rows);
    return previous;
}
std::uint64_t ioSetNumWindowColumns(std::uint64_t columns) {
    const std::uint64_t previous = ioGetNumWindowColumns();
    host::environment().setWindowColumns(columns);
    return previous;
}

bool utIsSignalThread() { return host::environment().isSignalThread(); }
bool utSetInterruptEnabled(bool enabled) { return host::environment().setInterruptEnabled(enabled); }
bool utInterruptState::SetInterruptPending(utInterruptState&, bool pending) {
    return host::environment().setInterruptPending(pending);
}

std::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> nmutil::eventmgr::createLocalEventMgr(
    const boost::optional<zvm::ZvmID>& id) {
    auto manager = host::environment().eventManager(id);
    if (!manager)
        throw std::runtime_error("There is no interpreter " + (id ? std::to_string(*id) : "here") + ".");
    return manager;
}

cppmicroservices::Framework foundation::cppmicroservices::getFramework() {
    return host::environment().microservices();
}
std::vector<cppmicroservices::Bundle> foundation::cppmicroservices::installAndStart(const std::string& path) {
    return host::environment().installAndStartBundles(path);
}
