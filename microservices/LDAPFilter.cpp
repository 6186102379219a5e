#include "cppmicroservices/LDAPFilter.h"

#include "filter/FilterNode.h"
#include "services/ServiceRecord.h"

namespace cppmicroservices {

LDAPFilter::LDAPFilter(const std::string& filter)
    : root_(std::make_shared<const detail::FilterNode>(detail::parseFilter(filter))) {}

bool LDAPFilter::Match(const ServiceReferenceBase& reference) const {
    const auto record = reference.record();
    return record && Match(record->properties()->map);
}

bool LDAPFilter::Match(const AnyMap& properties) const {
    return root_ && detail::matches(*root_, properties, false);
}

bool LDAPFilter::MatchCase(const AnyMap& properties) const {
    return root_ && detail::matches(*root_, properties, true);
}

std::string LDAPFilter::ToString() const { return root_ ? detail::filterText(*root_) : ""; }

}  // namespace cppmicroservices
