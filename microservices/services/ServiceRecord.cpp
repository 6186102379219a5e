#include "services/ServiceRecord.h"

#include <utility>

#include "bundles/BundleRecord.h"

namespace cppmicroservices::detail {

using connector::MutexLock;

namespace {

std::vector<std::string> names(const InterfaceMap& interfaces) {
    std::vector<std::string> ids;
    for (const auto& [id, object] : interfaces) ids.push_back(id);
    return ids;
}

}  // namespace

/// Owns one use: ends it and then releases the object, without a lock.
class ServiceRecord::Use {
public:
    Use(ServiceRecordPtr record, Owner user) : record_(std::move(record)), user_(std::move(user)) {}
    ~Use() {
        if (object) record_->endUse(user_);
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    std::shared_ptr<void> object;

private:
    const ServiceRecordPtr record_;
    const Owner user_;
};

ServiceRecord::ServiceRecord(long id, Owner owner, InterfaceMapConstPtr interfaces,
                             std::shared_ptr<const PropertySet> properties)
    : id_(id),
      owner_(std::move(owner)),
      interfaceIds_(names(*interfaces)),
      interfaces_(std::move(interfaces)),
      properties_(std::move(properties)) {}

ServiceRecord::~ServiceRecord() = default;

std::shared_ptr<const PropertySet> ServiceRecord::properties() const {
    MutexLock lock(mutex_);
    return properties_;
}

std::shared_ptr<const PropertySet> ServiceRecord::setProperties(
    std::shared_ptr<const PropertySet> properties) {
    MutexLock lock(mutex_);
    properties_.swap(properties);
    return properties;
}

bool ServiceRecord::isRegistered() const {
    MutexLock lock(mutex_);
    return interfaces_ != nullptr;
}

InterfaceMapConstPtr ServiceRecord::withdraw() {
    MutexLock lock(mutex_);
    return std::exchange(interfaces_, nullptr);
}

std::shared_ptr<void> ServiceRecord::use(const Owner& user, const std::string& interfaceId) {
    auto use = std::make_shared<Use>(shared_from_this(), user);
    {
        MutexLock lock(mutex_);
        if (!interfaces_) return nullptr;
        const auto found = interfaceId.empty() ? interfaces_->begin() : interfaces_->find(interfaceId);
        if (found == interfaces_->end()) return nullptr;
        ++uses_[user];
        use->object = found->second;
    }
    void* const object = use->object.get();
    return {std::move(use), object};
}

void ServiceRecord::endUse(const Owner& user) {
    MutexLock lock(mutex_);
    const auto found = uses_.find(user);
    if (--found->second == 0) uses_.erase(found);
}

std::vector<ServiceRecord::Owner> ServiceRecord::users() const {
    MutexLock lock(mutex_);
    std::vector<Owner> users;
    for (const auto& [user, count] : uses_) users.push_back(user);
    return users;
}

bool isPreferred(const ServiceRecord& left, const ServiceRecord& right) {
    const int leftRanking = left.properties()->ranking;
    const int rightRanking = right.properties()->ranking;
    return leftRanking != rightRanking ? leftRanking > rightRanking : left.id() < right.id();
}

}  // namespace cppmicroservices::detail
