#include "services/ServiceRegistry.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "cppmicroservices/Constants.h"
#include "filter/Filter.h"

namespace cppmicroservices::detail {

using connector::MutexLock;

namespace {

/// Joins `properties` with what the framework sets.
std::shared_ptr<const AnyMap> makeProperties(long id, const ServiceProperties& properties) {
    auto map = std::make_shared<AnyMap>(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& [key, value] : properties) {
        if (!map->emplace(key, value).second) {
            throw std::runtime_error("The property " + key + " is given twice, in different case.");
        }
    }
    (*map)[Constants::SERVICE_ID] = id;
    return map;
}

int rankingIn(const AnyMap& properties) {
    const auto found = properties.find(Constants::SERVICE_RANKING);
    if (found == properties.end()) return 0;
    const int* ranking = any_cast<int>(&found->second);
    if (ranking == nullptr) throw std::invalid_argument(Constants::SERVICE_RANKING + " must be an int");
    return *ranking;
}

bool isPreferred(const ServicePtr& left, const ServicePtr& right) {
    return left->ranking != right->ranking ? left->ranking > right->ranking : left->id < right->id;
}

}  // namespace

ServicePtr ServiceRegistry::add(const std::shared_ptr<ContextRecord>& owner, const std::type_info& type,
                                std::shared_ptr<void> object, const ServiceProperties& properties) {
    if (!object) throw std::invalid_argument("A service must not be null.");
    const long id = ++lastId_;
    auto map = makeProperties(id, properties);
    const int ranking = rankingIn(*map);
    const ServicePtr record(new ServiceRecord{owner, type, id, std::move(object), std::move(map), ranking});
    MutexLock lock(mutex_);
    if (!owner->isValid) throw std::runtime_error("The bundle was stopped.");
    insertLocked(record);
    return record;
}

void ServiceRegistry::setProperties(const ServicePtr& record, const ServiceProperties& properties) {
    // Declared before the lock, as in what follows: what was there is released after it.
    auto map = makeProperties(record->id, properties);
    const int ranking = rankingIn(*map);
    MutexLock lock(mutex_);
    if (!record->object) throw std::logic_error("The service is withdrawn.");
    removeLocked(*record);
    record->properties.swap(map);
    record->ranking = ranking;
    insertLocked(record);
}

void ServiceRegistry::withdraw(ServiceRecord& record) {
    std::shared_ptr<void> object;
    MutexLock lock(mutex_);
    if (!record.object) throw std::logic_error("The service is withdrawn.");
    object.swap(record.object);
    removeLocked(record);
}

void ServiceRegistry::end(ContextRecord& context) {
    std::vector<std::shared_ptr<void>> objects;
    std::vector<ServicePtr> withdrawn;
    MutexLock lock(mutex_);
    context.isValid = false;
    for (auto& [type, records] : services_) {
        const auto ended =
            std::stable_partition(records.begin(), records.end(),
                                  [&](const ServicePtr& record) { return record->owner.get() != &context; });
        withdrawn.insert(withdrawn.end(), ended, records.end());
        records.erase(ended, records.end());
    }
    for (const ServicePtr& record : withdrawn) objects.push_back(std::exchange(record->object, nullptr));
}

void ServiceRegistry::insertLocked(const ServicePtr& record) {
    auto& records = services_[record->type];
    records.insert(std::ranges::upper_bound(records, record, isPreferred), record);
}

void ServiceRegistry::removeLocked(const ServiceRecord& record) {
    std::erase_if(services_[record.type], [&](const ServicePtr& other) { return other.get() == &record; });
}

std::vector<ServicePtr> ServiceRegistry::find(const std::type_info& type, const std::string& filter) const {
    const Filter matches = filter.empty() ? Filter() : parseFilter(filter);
    std::vector<ServicePtr> found;
    MutexLock lock(mutex_);
    const auto records = services_.find(type);
    if (records == services_.end()) return found;
    std::ranges::copy_if(records->second, std::back_inserter(found),
                         [&](const ServicePtr& record) { return !matches || matches(*record->properties); });
    return found;
}

std::shared_ptr<void> ServiceRegistry::objectOf(const ServiceRecord& record) const {
    MutexLock lock(mutex_);
    return record.object;
}

std::shared_ptr<const AnyMap> ServiceRegistry::propertiesOf(const ServiceRecord& record) const {
    MutexLock lock(mutex_);
    return record.properties;
}

}  // namespace cppmicroservices::detail
