#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cppmicroservices/Any.h"
#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/detail/SharedCell.h"

namespace cppmicroservices {

namespace detail {
class ServiceRecord;
struct ReferenceTarget;
}  // namespace detail

/// Points to one registration of a service, without using the service.
///
/// Threads: may be copied, assigned and read at once; every operation from any thread.
/// Throws: nothing but std::bad_alloc.
class ServiceReferenceBase {
public:
    ServiceReferenceBase() = default;
    ServiceReferenceBase(const ServiceReferenceBase& other);
    ServiceReferenceBase& operator=(const ServiceReferenceBase& other);
    ServiceReferenceBase& operator=(std::nullptr_t);

    /// Whether there is a service. False once it is withdrawn; its properties stay readable.
    explicit operator bool() const;

    /// The value of a property, its key in any case; empty when there is none.
    Any GetProperty(const std::string& key) const;
    std::vector<std::string> GetPropertyKeys() const;
    /// The bundle that registered the service; false once it is withdrawn.
    Bundle GetBundle() const;
    /// The bundles that hold the service.
    std::vector<Bundle> GetUsingBundles() const;
    /// The name by which the service was looked up.
    std::string GetInterfaceId() const;

    bool operator==(const ServiceReferenceBase& other) const;
    /// `a < b` says that `b` is preferred: it ranks higher, or it ranks the same and was registered earlier.
    bool operator<(const ServiceReferenceBase& other) const;

protected:
    ~ServiceReferenceBase() = default;

private:
    friend class LDAPFilter;
    friend struct detail::Handles;
    friend struct std::hash<ServiceReferenceBase>;
    template <class S>
    friend class ServiceReference;

    explicit ServiceReferenceBase(std::shared_ptr<const detail::ReferenceTarget> target);
    std::shared_ptr<detail::ServiceRecord> record() const;

    detail::SharedCell<const detail::ReferenceTarget> target_;
};

}  // namespace cppmicroservices

template <>
struct std::hash<cppmicroservices::ServiceReferenceBase> {
    std::size_t operator()(const cppmicroservices::ServiceReferenceBase& reference) const;
};
