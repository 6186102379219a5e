#pragma once

#include <string>
#include <unordered_map>
#include <utility>

#include "cppmicroservices/ServiceReference.h"

namespace cppmicroservices {

/// The properties of a service. Keys are looked up in any case.
using ServiceProperties = std::unordered_map<std::string, Any>;

namespace detail {

const ServicePtr& registered(const ServicePtr& record);
void setProperties(const ServicePtr& record, const ServiceProperties& properties);
void withdraw(const ServicePtr& record);

}  // namespace detail

/// What the one who registered a service as an `S` holds. Copies share the registration, and nothing ends it
/// but `Unregister` and the stop of the bundle: the destructor does not.
///
/// Threads: as a plain value; different handles of one registration may be used at once.
/// Throws: std::logic_error, each operation, when the handle is false or the service is withdrawn.
template <class S>
class ServiceRegistration {
public:
    ServiceRegistration() = default;

    /// Whether this handle was got from a registration; it stays true after `Unregister`.
    explicit operator bool() const { return record_ != nullptr; }
    ServiceReference<S> GetReference() const { return ServiceReference<S>(detail::registered(record_)); }

    /// Replaces all properties but those that the framework sets, and so the service's place in the order.
    /// Throws: also what BundleContext::RegisterService throws for bad properties.
    void SetProperties(const ServiceProperties& properties) { detail::setProperties(record_, properties); }

    /// Withdraws the service: new look-ups miss it, whoever holds it keeps it.  Blocks: never for its users.
    void Unregister() { detail::withdraw(record_); }

private:
    friend class BundleContext;

    explicit ServiceRegistration(detail::ServicePtr record) : record_(std::move(record)) {}

    detail::ServicePtr record_;
};

}  // namespace cppmicroservices
