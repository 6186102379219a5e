#include "standalone/StandaloneHost.h"

#include <atomic>
#include <stdexcept>

#include "interpreter/Interpreter.h"
#include "services/LocalConfiguration.h"
#include "services/LocalServiceFramework.h"

namespace standalone {

namespace {

std::atomic<bool> wasMade{false};

}  // namespace

class StandaloneHost::Impl {
public:
    explicit Impl(const HostOptions& options)
        : configuration(std::make_shared<LocalConfiguration>(options.configuration)), interpreter(options) {}

    const std::shared_ptr<connector::configuration::Configuration> configuration;
    const std::shared_ptr<connector::ServiceFramework> framework = std::make_shared<LocalServiceFramework>();
    Interpreter interpreter;
    const std::shared_ptr<zvm::ZVM> zvm = interpreter.currentLocalZVM();
};

StandaloneHost::StandaloneHost(const HostOptions& options) {
    if (wasMade.exchange(true))
        throw std::runtime_error("A process can have one standalone host in its life.");
    impl_ = std::make_unique<Impl>(options);
}

StandaloneHost::~StandaloneHost() = default;

const std::shared_ptr<zvm::ZVM>& StandaloneHost::zvm() const { return impl_->zvm; }
const std::shared_ptr<connector::ServiceFramework>& StandaloneHost::framework() const {
    return impl_->framework;
}
const std::shared_ptr<connector::configuration::Configuration>& StandaloneHost::configuration() const {
    return impl_->configuration;
}

int StandaloneHost::standardInput() const { return impl_->interpreter.originalDescriptor(0); }
int StandaloneHost::standardOutput() const { return impl_->interpreter.originalDescriptor(1); }
int StandaloneHost::standardError() const { return impl_->interpreter.originalDescriptor(2); }

}  // namespace standalone
