#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

#include "cppmicroservices/ServiceReferenceBase.h"

namespace cppmicroservices {

/// A reference to a service that is known to have the interface `S`; `ServiceReferenceU` to any service.
template <class S>
class ServiceReference : public ServiceReferenceBase {
public:
    using ServiceType = S;

    ServiceReference() = default;
    ServiceReference& operator=(std::nullptr_t) {
        ServiceReferenceBase::operator=(nullptr);
        return *this;
    }

private:
    friend struct detail::Handles;

    explicit ServiceReference(std::shared_ptr<const detail::ReferenceTarget> target)
        : ServiceReferenceBase(std::move(target)) {}
};

}  // namespace cppmicroservices

template <class S>
struct std::hash<cppmicroservices::ServiceReference<S>> : std::hash<cppmicroservices::ServiceReferenceBase> {
};
