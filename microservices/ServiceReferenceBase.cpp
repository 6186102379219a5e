#include "cppmicroservices/ServiceReferenceBase.h"

#include <utility>

#include "bundles/BundleRecord.h"
#include "cppmicroservices/IllegalStateException.h"
#include "references.h"

namespace cppmicroservices {

ServiceReferenceBase::ServiceReferenceBase(std::shared_ptr<const detail::ReferenceTarget> target)
    : target_(std::move(target)) {}

ServiceReferenceBase::ServiceReferenceBase(const ServiceReferenceBase& other)
    : target_(other.target_.get()) {}

ServiceReferenceBase& ServiceReferenceBase::operator=(const ServiceReferenceBase& other) {
    target_.exchange(other.target_.get());
    return *this;
}

ServiceReferenceBase& ServiceReferenceBase::operator=(std::nullptr_t) {
    target_.exchange(nullptr);
    return *this;
}

detail::ServiceRecordPtr ServiceReferenceBase::record() const {
    const auto target = target_.get();
    return target ? target->record : nullptr;
}

ServiceReferenceBase::operator bool() const {
    const auto service = record();
    return service && service->isRegistered();
}

Any ServiceReferenceBase::GetProperty(const std::string& key) const {
    const auto service = record();
    if (!service) return {};
    const auto properties = service->properties();
    const auto found = properties->map.find(key);
    return found != properties->map.end() ? found->second : Any();
}

std::vector<std::string> ServiceReferenceBase::GetPropertyKeys() const {
    std::vector<std::string> keys;
    if (const auto service = record()) {
        const auto properties = service->properties();
        for (const auto& [key, value] : properties->map) keys.push_back(key);
    }
    return keys;
}

Bundle ServiceReferenceBase::GetBundle() const try {
    const auto service = record();
    return service && service->isRegistered() ? detail::Handles::bundle(service->owner()) : Bundle();
} catch (const IllegalStateException&) {
    return {};
}

std::vector<Bundle> ServiceReferenceBase::GetUsingBundles() const try {
    std::vector<Bundle> bundles;
    if (const auto service = record()) {
        for (const auto& user : service->users()) bundles.push_back(detail::Handles::bundle(user));
    }
    return bundles;
} catch (const IllegalStateException&) {
    return {};
}

std::string ServiceReferenceBase::GetInterfaceId() const {
    const auto target = target_.get();
    return target ? target->interfaceId : "";
}

bool ServiceReferenceBase::operator==(const ServiceReferenceBase& other) const {
    return record() == other.record();
}

bool ServiceReferenceBase::operator<(const ServiceReferenceBase& other) const {
    const auto service = record();
    const auto otherService = other.record();
    if (!service || !otherService) return !service && otherService;
    return detail::isPreferred(*otherService, *service);
}

}  // namespace cppmicroservices

std::size_t std::hash<cppmicroservices::ServiceReferenceBase>::operator()(
    const cppmicroservices::ServiceReferenceBase& reference) const {
    return std::hash<cppmicroservices::detail::ServiceRecordPtr>()(reference.record());
}
