#pragma once

#include <memory>
#include <string>
#include <utility>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {

namespace detail {

struct ServiceRecord;
using ServicePtr = std::shared_ptr<ServiceRecord>;

bool isRegistered(const ServicePtr& record);
Any propertyOf(const ServicePtr& record, const std::string& key);

}  // namespace detail

/// Points to one registration of a service that was offered as an `S`, without holding the service.
///
/// Threads: as a plain value.
template <class S>
class ServiceReference {
public:
    ServiceReference() = default;

    /// Whether there is a service. False once it is withdrawn; its properties stay readable.
    explicit operator bool() const { return detail::isRegistered(record_); }
    bool operator==(const ServiceReference& other) const { return record_ == other.record_; }

    /// The value of a property, its key in any case; empty when there is none.
    Any GetProperty(const std::string& key) const { return detail::propertyOf(record_, key); }

private:
    friend class BundleContext;
    template <class>
    friend class ServiceRegistration;

    explicit ServiceReference(detail::ServicePtr record) : record_(std::move(record)) {}

    detail::ServicePtr record_;
};

}  // namespace cppmicroservices
