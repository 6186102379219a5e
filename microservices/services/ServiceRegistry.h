#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <typeindex>
#include <vector>

#include "connector/ThreadSafety.h"
#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceRegistration.h"

namespace cppmicroservices::detail {

/// One start of a bundle, which is what a context is valid for.
struct ContextRecord {
    const std::shared_ptr<FrameworkCore> framework;
    const std::shared_ptr<BundleRecord> bundle;
    std::atomic<bool> isValid{true};  ///< changed under the registry's mutex: no service is added afterwards
};

/// One registration of a service.
struct ServiceRecord {
    const std::shared_ptr<ContextRecord> owner;
    const std::type_index type;
    const long id;

    // Guarded by the registry's mutex.
    std::shared_ptr<void> object;  ///< null once withdrawn
    std::shared_ptr<const AnyMap> properties;
    int ranking;
};

/// The services of one framework, in their order. For what the operations throw see BundleContext and
/// ServiceRegistration.
///
/// Threads: any.
/// Locks: mutex_, a leaf; objects and properties are copied and released without it.
class ServiceRegistry {
public:
    ServicePtr add(const std::shared_ptr<ContextRecord>& owner, const std::type_info& type,
                   std::shared_ptr<void> object, const ServiceProperties& properties)
        CONNECTOR_EXCLUDES(mutex_);
    void setProperties(const ServicePtr& record, const ServiceProperties& properties)
        CONNECTOR_EXCLUDES(mutex_);
    void withdraw(ServiceRecord& record) CONNECTOR_EXCLUDES(mutex_);

    /// Makes `context` invalid and withdraws what was registered with it; nothing can be added in between.
    void end(ContextRecord& context) CONNECTOR_EXCLUDES(mutex_);

    std::vector<ServicePtr> find(const std::type_info& type, const std::string& filter) const
        CONNECTOR_EXCLUDES(mutex_);

    /// Null once withdrawn.
    std::shared_ptr<void> objectOf(const ServiceRecord& record) const CONNECTOR_EXCLUDES(mutex_);
    std::shared_ptr<const AnyMap> propertiesOf(const ServiceRecord& record) const CONNECTOR_EXCLUDES(mutex_);

private:
    void insertLocked(const ServicePtr& record) CONNECTOR_REQUIRES(mutex_);
    void removeLocked(const ServiceRecord& record) CONNECTOR_REQUIRES(mutex_);

    std::atomic<long> lastId_{0};

    mutable connector::Mutex mutex_;
    std::map<std::type_index, std::vector<ServicePtr>> services_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace cppmicroservices::detail
