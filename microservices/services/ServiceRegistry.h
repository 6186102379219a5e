#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "connector/ThreadSafety.h"
#include "services/ServiceRecord.h"

namespace cppmicroservices::detail {

class ContextRecord;

/// The services of one framework, in their order.
///
/// Threads: any.  Locks: mutex_; only those of service records are taken under it. What is released, and
/// filters, run without it.
class ServiceRegistry {
public:
    /// Adds a service of `owner`.
    /// Throws: IllegalStateException, when `context` is no longer valid; as makePropertySet does.
    ServiceRecordPtr add(const std::shared_ptr<BundleRecord>& owner, const ContextRecord& context,
                         const InterfaceMapConstPtr& interfaces, const ServiceProperties& properties)
        EXCLUDES(mutex_);

    /// Replaces the properties and sorts anew.  Throws: std::logic_error, when it is withdrawn.
    void setProperties(ServiceRecord& record, const ServiceProperties& properties) EXCLUDES(mutex_);

    /// Whether it was registered until now.
    bool withdraw(ServiceRecord& record) EXCLUDES(mutex_);

    /// Makes `context` invalid and withdraws what was registered with it; nothing can be added in between.
    void end(ContextRecord& context, const BundleRecord& owner) EXCLUDES(mutex_);

    /// The services with that interface (empty: any) that `filter` matches, in their order.
    /// Throws: std::invalid_argument, when there are such services and the filter is bad.
    std::vector<ServiceRecordPtr> find(const std::string& interfaceId, const std::string& filter) const
        EXCLUDES(mutex_);

    /// All of them, in the order of registration.
    std::vector<ServiceRecordPtr> all() const EXCLUDES(mutex_);

private:
    void removeLocked(const ServiceRecord& record) REQUIRES(mutex_);

    mutable connector::Mutex mutex_;
    long lastId_ GUARDED_BY(mutex_) = 0;
    std::vector<ServiceRecordPtr> all_ GUARDED_BY(mutex_);
    std::map<std::string, std::vector<ServiceRecordPtr>> byInterface_ GUARDED_BY(mutex_);
};

/// Joins `properties` with what the framework sets. `isRankingChecked`: a ranking that is no int is refused,
/// else it counts as 0.
/// Throws: std::runtime_error, when two keys differ only in case; std::invalid_argument, for the ranking.
std::shared_ptr<const PropertySet> makePropertySet(long id, const std::vector<std::string>& interfaceIds,
                                                   const ServiceProperties& properties,
                                                   bool isRankingChecked);

}  // namespace cppmicroservices::detail
