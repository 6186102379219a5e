#include "cppmicroservices/ServiceRegistration.h"

#include <stdexcept>
#include <utility>

#include "bundles/FrameworkCore.h"
#include "cppmicroservices/IllegalStateException.h"
#include "references.h"

namespace cppmicroservices {

namespace {

/// The registry of the service's framework.  Throws: std::logic_error, when there is none.
std::shared_ptr<detail::FrameworkCore> frameworkOf(const detail::ServiceRecordPtr& record) try {
    if (!record) throw std::logic_error("The registration is of no service.");
    return record->owner()->framework();
} catch (const IllegalStateException&) {
    throw std::logic_error("The service is withdrawn.");
}

}  // namespace

ServiceRegistrationBase& ServiceRegistrationBase::operator=(std::nullptr_t) {
    record_ = nullptr;
    return *this;
}

void ServiceRegistrationBase::SetProperties(const ServiceProperties& properties) {
    frameworkOf(record_)->services().setProperties(*record_, properties);
}
void ServiceRegistrationBase::SetProperties(ServiceProperties&& properties) {
    SetProperties(std::as_const(properties));
}

void ServiceRegistrationBase::Unregister() {
    // The object that is released may be what holds this handle.
    const auto record = record_;
    if (!frameworkOf(record)->services().withdraw(*record)) {
        throw std::logic_error("The service is withdrawn.");
    }
}

std::shared_ptr<const detail::ReferenceTarget> ServiceRegistrationBase::target(
    const std::string& interfaceId) const {
    if (!record_ || !record_->isRegistered()) throw std::logic_error("The service is withdrawn.");
    return detail::targetOf(record_, interfaceId);
}

}  // namespace cppmicroservices
