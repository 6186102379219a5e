// The public handles: what stands behind each does the work.

#include <stdexcept>

#include "bundles/FrameworkCore.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/FrameworkFactory.h"

namespace cppmicroservices {

namespace {

detail::FrameworkCore& frameworkOf(const std::shared_ptr<detail::ContextRecord>& context) {
    if (!context || !context->isValid) {
        throw std::runtime_error("The context does not belong to an active bundle.");
    }
    return *context->framework;
}

detail::ServiceRegistry& registryOf(const detail::ServicePtr& service) {
    if (!service) throw std::logic_error("The registration does not belong to a service.");
    return service->owner->framework->services();
}

}  // namespace

Framework FrameworkFactory::NewFramework() { return Framework(detail::FrameworkCore::make()); }

const Bundle& Bundle::checked() const {
    if (!record_) throw std::invalid_argument("invalid bundle");
    return *this;
}

// Foreign code runs in these two, which may assign to this handle: a copy keeps the framework meanwhile.
void Bundle::Start() {
    const Bundle kept = checked();
    kept.framework_->start(kept.record_);
}
void Bundle::Stop() {
    const Bundle kept = checked();
    kept.framework_->stop(kept.record_);
}

Bundle::State Bundle::GetState() const { return checked().framework_->stateOf(*record_); }
BundleContext Bundle::GetBundleContext() const {
    return BundleContext(checked().framework_->contextOf(*record_));
}
std::string Bundle::GetLocation() const { return checked().record_->location; }
std::string Bundle::GetSymbolicName() const { return checked().record_->symbolicName; }
const AnyMap& Bundle::GetHeaders() const { return checked().record_->headers; }

BundleContext::operator bool() const { return record_ && record_->isValid; }

Bundle BundleContext::GetBundle() const { return {frameworkOf(record_).running(), record_->bundle}; }

std::vector<Bundle> BundleContext::InstallBundles(const std::string& location) {
    auto bundle = frameworkOf(record_).install(location);
    return {Bundle(record_->framework->running(), std::move(bundle))};
}

detail::ServicePtr BundleContext::add(const std::type_info& type, std::shared_ptr<void> object,
                                      const ServiceProperties& properties) const {
    return frameworkOf(record_).services().add(record_, type, std::move(object), properties);
}

std::vector<detail::ServicePtr> BundleContext::find(const std::type_info& type,
                                                    const std::string& filter) const {
    return frameworkOf(record_).services().find(type, filter);
}

std::shared_ptr<void> BundleContext::get(const detail::ServicePtr& service) const {
    const auto& services = frameworkOf(record_).services();
    const auto object = service ? services.objectOf(*service) : nullptr;
    if (!object) throw std::invalid_argument("The reference does not belong to a registered service.");
    return object;
}

bool detail::isRegistered(const ServicePtr& service) {
    return service && registryOf(service).objectOf(*service) != nullptr;
}

Any detail::propertyOf(const ServicePtr& service, const std::string& key) {
    if (!service) return {};
    const auto properties = registryOf(service).propertiesOf(*service);
    const auto found = properties->find(key);
    return found != properties->end() ? found->second : Any();
}

const detail::ServicePtr& detail::registered(const ServicePtr& service) {
    if (!registryOf(service).objectOf(*service)) throw std::logic_error("The service is withdrawn.");
    return service;
}

void detail::setProperties(const ServicePtr& service, const ServiceProperties& properties) {
    registryOf(service).setProperties(service, properties);
}

void detail::withdraw(const ServicePtr& service) {
    const ServicePtr kept = service;  // the object that is released may be what holds the registration
    registryOf(kept).withdraw(*kept);
}

}  // namespace cppmicroservices
