#include "standalone/StandaloneHost.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include "LocalEnvironment.h"
#include "messages/LocalServiceFramework.h"
#include "services/LocalConfiguration.h"
#include "services/streamingServices.h"

namespace standalone {

namespace {

std::atomic<bool> wasMade{false};

}  // namespace

class StandaloneHost::Impl {
public:
    Impl(const HostOptions& options, std::shared_ptr<LocalConfiguration> values)
        : configuration(values),
          messages(options.messageService
                       ? nullptr
                       : std::make_shared<messages::LocalMessageService>(options.messages)),
          messageServiceFactory(std::make_shared<messages::LocalMessageServiceFactory>(
              options.messageService ? options.messageService : messages)),
          environment(options, std::move(values)) {}

    const std::shared_ptr<connector::configuration::Configuration> configuration;
    const std::shared_ptr<connector::ServiceFramework> framework =
        std::make_shared<messages::LocalServiceFramework>();
    const std::shared_ptr<messages::LocalMessageService> messages;
    const std::shared_ptr<connector::message_service::MessageServiceFactory> messageServiceFactory;
    const std::shared_ptr<connector::shadow_files::v1::ShadowService> shadowService =
        std::make_shared<LocalShadowService>();
    const std::shared_ptr<messages::RequestCounter> requestCounter =
        std::make_shared<messages::RequestCounter>();
    LocalEnvironment environment;
    const std::shared_ptr<zvm::ZVM> zvm = environment.currentLocalZVM();
    const std::shared_ptr<connector::common::RequestGate> requestGate =
        std::make_shared<InterpreterGate>(zvm, shadowService);
};

StandaloneHost::StandaloneHost(const HostOptions& options) {
    if (wasMade.exchange(true))
        throw std::runtime_error("A process can have one standalone host in its life.");
    impl_ = std::make_unique<Impl>(options, std::make_shared<LocalConfiguration>(options.configuration));
}

StandaloneHost::~StandaloneHost() = default;

const std::shared_ptr<zvm::ZVM>& StandaloneHost::zvm() const { return impl_->zvm; }
const std::shared_ptr<connector::ServiceFramework>& StandaloneHost::framework() const {
    return impl_->framework;
}
const std::shared_ptr<connector::configuration::Configuration>& StandaloneHost::configuration() const {
    return impl_->configuration;
}

const std::shared_ptr<messages::LocalMessageService>& StandaloneHost::messages() const {
    return impl_->messages;
}
const std::shared_ptr<connector::message_service::MessageServiceFactory>&
StandaloneHost::messageServiceFactory() const {
    return impl_->messageServiceFactory;
}
const std::shared_ptr<connector::shadow_files::v1::ShadowService>& StandaloneHost::shadowService() const {
    return impl_->shadowService;
}
const std::shared_ptr<connector::common::RequestGate>& StandaloneHost::requestGate() const {
    return impl_->requestGate;
}
const std::shared_ptr<messages::RequestCounter>& StandaloneHost::requestCounter() const {
    return impl_->requestCounter;
}

std::chrono::milliseconds StandaloneHost::deafFor() { return impl_->environment.deafFor(); }

int StandaloneHost::standardInput() const { return impl_->environment.originalDescriptor(0); }
int StandaloneHost::standardOutput() const { return impl_->environment.originalDescriptor(1); }
int StandaloneHost::standardError() const { return impl_->environment.originalDescriptor(2); }

}  // namespace standalone
