#include "cppmicroservices/BundleContext.h"

#include <stdexcept>
#include <utility>

#include "bundles/FrameworkCore.h"
#include "cppmicroservices/IllegalStateException.h"
#include "references.h"

namespace cppmicroservices {

using detail::BundleRecord;
using detail::Handles;

namespace {

std::shared_ptr<BundleRecord> bundleOf(const std::shared_ptr<detail::ContextRecord>& context) {
    if (!context) throw IllegalStateException("The context is of no bundle that is active.");
    return context->bundle();
}

}  // namespace

BundleContext& BundleContext::operator=(std::nullptr_t) { return *this = BundleContext(); }

BundleContext::operator bool() const { return record_ && record_->isValid(); }

Bundle BundleContext::GetBundle() const { return Handles::bundle(bundleOf(record_)); }

Bundle BundleContext::GetBundle(long id) const {
    for (const auto& bundle : bundleOf(record_)->framework()->bundles()) {
        if (bundle->id == id) return Handles::bundle(bundle);
    }
    return {};
}

std::vector<Bundle> BundleContext::GetBundles() const {
    std::vector<Bundle> bundles;
    for (const auto& bundle : bundleOf(record_)->framework()->bundles()) {
        bundles.push_back(Handles::bundle(bundle));
    }
    return bundles;
}

std::vector<Bundle> BundleContext::GetBundles(const std::string& location) const {
    auto bundles = GetBundles();
    std::erase_if(bundles, [&](const Bundle& bundle) { return bundle.GetLocation() != location; });
    return bundles;
}

std::vector<Bundle> BundleContext::InstallBundles(const std::string& location, const AnyMap& bundleManifest) {
    std::vector<Bundle> installed;
    for (const auto& bundle : bundleOf(record_)->framework()->install(location, bundleManifest)) {
        installed.push_back(Handles::bundle(bundle));
    }
    return installed;
}

ServiceRegistrationU BundleContext::RegisterService(const InterfaceMapConstPtr& interfaces,
                                                    const ServiceProperties& properties) {
    ServiceRegistrationU registration;
    Handles::setRecord(registration, registerRecord(interfaces, properties));
    return registration;
}

detail::ServiceRecordPtr BundleContext::registerRecord(const InterfaceMapConstPtr& interfaces,
                                                       const ServiceProperties& properties) {
    const auto bundle = bundleOf(record_);
    if (!interfaces || interfaces->empty()) throw std::invalid_argument("a service has an interface");
    for (const auto& [interfaceId, object] : *interfaces) {
        if (!object) throw std::invalid_argument("the service " + interfaceId + " is null");
    }
    return bundle->framework()->services().add(bundle, *record_, interfaces, properties);
}

std::vector<std::shared_ptr<const detail::ReferenceTarget>> BundleContext::find(
    const std::string& interfaceId, const std::string& filter) const {
    std::vector<std::shared_ptr<const detail::ReferenceTarget>> targets;
    for (auto& record : bundleOf(record_)->framework()->services().find(interfaceId, filter)) {
        targets.push_back(detail::targetOf(std::move(record), interfaceId));
    }
    return targets;
}

std::vector<ServiceReferenceU> BundleContext::GetServiceReferences(const std::string& clazz,
                                                                   const std::string& filter) {
    std::vector<ServiceReferenceU> references;
    for (auto& target : find(clazz, filter)) {
        references.push_back(Handles::reference<void>(std::move(target)));
    }
    return references;
}

ServiceReferenceU BundleContext::GetServiceReference(const std::string& clazz) {
    const auto references = GetServiceReferences(clazz);
    return references.empty() ? ServiceReferenceU() : references.front();
}

std::shared_ptr<void> BundleContext::use(const ServiceReferenceBase& reference) const {
    const auto bundle = bundleOf(record_);
    const auto target = Handles::target(reference);
    if (!target || !target->record->isRegistered()) {
        throw std::invalid_argument("the reference is of no service that is registered");
    }
    return target->record->use(bundle, target->interfaceId);
}

}  // namespace cppmicroservices
