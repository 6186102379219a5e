#include "LocalEnvironment.h"

#include <utility>

#include "connector/configuration/settings.h"
#include "python/interpreterLock.h"
#include "services/processFramework.h"

namespace standalone {

namespace configuration = connector::configuration;

LocalEnvironment::LocalEnvironment(const HostOptions& options, std::shared_ptr<LocalConfiguration> values)
    : configuration_(std::move(values)),
      telemetry_(configuration_->getText(configuration::telemetryFileKey, "")),
      telemetryChanges_(configuration_->subscribe(
          configuration::telemetryFileKey,
          std::make_shared<connector::reactive_streams::CallbackSubscriber>([this](const auto& value) {
              if (const auto* path = boost::get<std::string>(&value)) telemetry_.use(*path);
          }))),
      thread_(options, *this, *configuration_) {
    thread_.prompts().countFrom(options.promptsBefore);
}

void LocalEnvironment::typeCodeUnit(char16_t unit) {
    thread_.prompts().type(unit);
    thread_.window().noteTyping();
}

void LocalEnvironment::unlocked(const std::function<void()>& action) { releasingInterpreterLock(action); }
int LocalEnvironment::acquireLock() { return acquireInterpreterLock(); }
void LocalEnvironment::releaseLock(int state) { releaseInterpreterLock(state); }

bool LocalEnvironment::setInterruptPending(bool pending) {
    RequestQueue& queue = thread_.queue();
    if (!pending) return queue.clearInterrupts();
    const bool wasPending = queue.isInterrupted();
    queue.interrupt();
    return wasPending;
}

std::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> LocalEnvironment::eventManager(
    const boost::optional<zvm::ZvmID>& id) {
    return !id || *id == thread_.zvm()->id() ? thread_.events() : nullptr;
}

cppmicroservices::Framework LocalEnvironment::microservices() { return processFramework(); }
std::vector<cppmicroservices::Bundle> LocalEnvironment::installAndStartBundles(const std::string& path) {
    return standalone::installAndStartBundles(path);
}

}  // namespace standalone
