#pragma once

#include <cstddef>
#include <memory>

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/detail/Handles.h"

namespace cppmicroservices {

/// What the one who registered a service holds. Copies share the registration, and nothing ends it but
/// `Unregister` and the stop of the bundle: the destructor does not.
///
/// Threads: as a plain value; different handles of one registration may be used at once.
/// Throws: std::logic_error, each member, when false or withdrawn already.
class ServiceRegistrationBase {
public:
    ServiceRegistrationBase() = default;
    ServiceRegistrationBase& operator=(std::nullptr_t);

    /// Whether this handle was got from a registration; it stays true after `Unregister`.
    explicit operator bool() const { return record_ != nullptr; }
    bool operator==(const ServiceRegistrationBase& other) const { return record_ == other.record_; }

    /// Replaces all properties but those that the framework sets, and so the service's place in the order.
    /// Throws: also std::invalid_argument, when `service.ranking` is no int, and std::runtime_error, when two
    /// keys differ only in case.
    void SetProperties(const ServiceProperties& properties);
    void SetProperties(ServiceProperties&& properties);

    /// Withdraws the service: new look-ups miss it, whoever holds it keeps it.  Blocks: never for its users.
    void Unregister();

protected:
    ~ServiceRegistrationBase() = default;
    std::shared_ptr<const detail::ReferenceTarget> target(const std::string& interfaceId) const;

private:
    friend struct detail::Handles;

    std::shared_ptr<detail::ServiceRecord> record_;
};

/// The registration of a service with the interfaces `I1` and `More`.
template <class I1, class... More>
class ServiceRegistration : public ServiceRegistrationBase {
public:
    ServiceRegistration() = default;
    ServiceRegistration& operator=(std::nullptr_t) {
        ServiceRegistrationBase::operator=(nullptr);
        return *this;
    }

    ServiceReference<I1> GetReference() const {
        return detail::Handles::reference<I1>(target(detail::interfaceId<I1>()));
    }
};

using ServiceRegistrationU = ServiceRegistration<void>;

}  // namespace cppmicroservices
