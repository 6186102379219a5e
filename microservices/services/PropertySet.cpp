#include <stdexcept>

#include "cppmicroservices/Constants.h"
#include "services/ServiceRegistry.h"

namespace cppmicroservices::detail {

namespace {

int rankingOf(const AnyMap& properties, bool isChecked) {
    const auto found = properties.find(Constants::SERVICE_RANKING);
    if (found == properties.end()) return 0;
    if (const int* ranking = any_cast<int>(&found->second)) return *ranking;
    if (isChecked) throw std::invalid_argument(Constants::SERVICE_RANKING + " is no int");
    return 0;
}

}  // namespace

std::shared_ptr<const PropertySet> makePropertySet(long id, const std::vector<std::string>& interfaceIds,
                                                   const ServiceProperties& properties,
                                                   bool isRankingChecked) {
    AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& [key, value] : properties) {
        if (!map.emplace(key, value).second) {
            throw std::runtime_error("the property " + key + " is there twice, in different case");
        }
    }
    map[Constants::OBJECTCLASS] = interfaceIds;
    map[Constants::SERVICE_ID] = id;
    map[Constants::SERVICE_SCOPE] = Constants::SCOPE_SINGLETON;
    const int ranking = rankingOf(map, isRankingChecked);
    return std::make_shared<const PropertySet>(PropertySet{std::move(map), ranking});
}

}  // namespace cppmicroservices::detail
