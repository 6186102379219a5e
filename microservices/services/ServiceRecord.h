#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "connector/ThreadSafety.h"
#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/ServiceInterface.h"

namespace cppmicroservices::detail {

class BundleRecord;

/// The properties of a service at one time; never changed, replaced as a whole.
struct PropertySet {
    AnyMap map;
    int ranking;
};

/// One registration of a service, and who uses it.
///
///     registered -- withdraw --> withdrawn
///
/// Threads: any.  Locks: mutex_, a leaf; objects and properties are released without it.
class ServiceRecord : public std::enable_shared_from_this<ServiceRecord> {
public:
    using Owner = std::shared_ptr<BundleRecord>;

    ServiceRecord(long id, Owner owner, InterfaceMapConstPtr interfaces,
                  std::shared_ptr<const PropertySet> properties);
    ~ServiceRecord();
    ServiceRecord(const ServiceRecord&) = delete;
    ServiceRecord& operator=(const ServiceRecord&) = delete;

    long id() const { return id_; }
    const Owner& owner() const { return owner_; }
    const std::vector<std::string>& interfaceIds() const { return interfaceIds_; }

    std::shared_ptr<const PropertySet> properties() const EXCLUDES(mutex_);
    /// Returns what was there, to be released without a lock.
    std::shared_ptr<const PropertySet> setProperties(std::shared_ptr<const PropertySet> properties)
        EXCLUDES(mutex_);

    bool isRegistered() const EXCLUDES(mutex_);
    /// Returns the objects, to be released without a lock; null, when it was withdrawn before.
    InterfaceMapConstPtr withdraw() EXCLUDES(mutex_);

    /// The object, in use by `user` until the last copy of the pointer goes; null, when withdrawn.
    std::shared_ptr<void> use(const Owner& user, const std::string& interfaceId) EXCLUDES(mutex_);
    std::vector<Owner> users() const EXCLUDES(mutex_);

private:
    class Use;

    void endUse(const Owner& user) EXCLUDES(mutex_);

    // Fixed after construction.
    const long id_;
    const Owner owner_;
    const std::vector<std::string> interfaceIds_;

    mutable connector::Mutex mutex_;
    InterfaceMapConstPtr interfaces_ GUARDED_BY(mutex_);  ///< null once withdrawn
    std::shared_ptr<const PropertySet> properties_ GUARDED_BY(mutex_);
    std::map<Owner, std::size_t> uses_ GUARDED_BY(mutex_);
};

using ServiceRecordPtr = std::shared_ptr<ServiceRecord>;

/// Whether `left` comes before `right`: it ranks higher, or the same and is older.
bool isPreferred(const ServiceRecord& left, const ServiceRecord& right);

}  // namespace cppmicroservices::detail
