#include "services/ServiceRegistry.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "bundles/BundleRecord.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/IllegalStateException.h"
#include "filter/FilterNode.h"

namespace cppmicroservices::detail {

using connector::MutexLock;

namespace {

bool comesFirst(const ServiceRecordPtr& left, const ServiceRecordPtr& right) {
    return isPreferred(*left, *right);
}

}  // namespace

ServiceRecordPtr ServiceRegistry::add(const std::shared_ptr<BundleRecord>& owner,
                                      const ContextRecord& context, const InterfaceMapConstPtr& interfaces,
                                      const ServiceProperties& properties) {
    long id = 0;
    {
        MutexLock lock(mutex_);
        id = ++lastId_;
    }
    std::vector<std::string> interfaceIds;
    for (const auto& [interfaceId, object] : *interfaces) interfaceIds.push_back(interfaceId);
    // Copies of values are foreign code: made before the lock is taken.
    auto record = std::make_shared<ServiceRecord>(id, owner, interfaces,
                                                  makePropertySet(id, interfaceIds, properties, false));
    MutexLock lock(mutex_);
    if (!context.isValid()) throw IllegalStateException("The bundle's context is no longer valid.");
    // Numbers were given out before, so another thread may have been faster.
    const auto isOlder = [](const ServiceRecordPtr& left, const ServiceRecordPtr& right) {
        return left->id() < right->id();
    };
    all_.insert(std::ranges::upper_bound(all_, record, isOlder), record);
    for (const std::string& interfaceId : interfaceIds) {
        auto& records = byInterface_[interfaceId];
        records.insert(std::ranges::upper_bound(records, record, comesFirst), record);
    }
    return record;
}

void ServiceRegistry::setProperties(ServiceRecord& record, const ServiceProperties& properties) {
    // Declared before the lock, as in what follows: what was there is released after it.
    auto set = makePropertySet(record.id(), record.interfaceIds(), properties, true);
    MutexLock lock(mutex_);
    if (!record.isRegistered()) throw std::logic_error("The service is withdrawn.");
    set = record.setProperties(std::move(set));
    for (const std::string& interfaceId : record.interfaceIds()) {
        std::ranges::sort(byInterface_[interfaceId], comesFirst);
    }
}

bool ServiceRegistry::withdraw(ServiceRecord& record) {
    InterfaceMapConstPtr interfaces;
    MutexLock lock(mutex_);
    interfaces = record.withdraw();
    if (!interfaces) return false;
    removeLocked(record);
    return true;
}

void ServiceRegistry::end(ContextRecord& context, const BundleRecord& owner) {
    std::vector<InterfaceMapConstPtr> withdrawn;
    std::vector<ServiceRecordPtr> records;
    MutexLock lock(mutex_);
    context.invalidate();
    std::ranges::copy_if(all_, std::back_inserter(records),
                         [&](const ServiceRecordPtr& record) { return record->owner().get() == &owner; });
    for (const ServiceRecordPtr& record : records) {
        withdrawn.push_back(record->withdraw());
        removeLocked(*record);
    }
}

void ServiceRegistry::removeLocked(const ServiceRecord& record) {
    const auto isRecord = [&](const ServiceRecordPtr& other) { return other.get() == &record; };
    std::erase_if(all_, isRecord);
    for (const std::string& interfaceId : record.interfaceIds()) {
        const auto found = byInterface_.find(interfaceId);
        std::erase_if(found->second, isRecord);
        if (found->second.empty()) byInterface_.erase(found);
    }
}

std::vector<ServiceRecordPtr> ServiceRegistry::find(const std::string& interfaceId,
                                                    const std::string& filter) const {
    std::vector<ServiceRecordPtr> records;
    {
        MutexLock lock(mutex_);
        const auto found = byInterface_.find(interfaceId);
        if (interfaceId.empty()) {
            records = all_;
        } else if (found != byInterface_.end()) {
            records = found->second;
        }
    }
    if (records.empty() || filter.empty()) return records;
    const FilterNode parsed = parseFilter(filter);
    std::erase_if(records, [&](const ServiceRecordPtr& record) {
        return !matches(parsed, record->properties()->map, false);
    });
    if (interfaceId.empty() && mentions(parsed, Constants::OBJECTCLASS)) {
        MutexLock lock(mutex_);  // rankings change under it only
        std::ranges::sort(records, comesFirst);
    }
    return records;
}

std::vector<ServiceRecordPtr> ServiceRegistry::all() const {
    MutexLock lock(mutex_);
    return all_;
}

}  // namespace cppmicroservices::detail
