#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/detail/Handles.h"
#include "services/ServiceRecord.h"

namespace cppmicroservices::detail {

/// What a reference to `record` by that interface points to; without a name, by one of its interfaces.
inline std::shared_ptr<const ReferenceTarget> targetOf(ServiceRecordPtr record, std::string interfaceId) {
    if (interfaceId.empty()) interfaceId = record->interfaceIds().front();
    return std::make_shared<const ReferenceTarget>(
        ReferenceTarget{std::move(record), std::move(interfaceId)});
}

/// References to those of `records` for which `isWanted` holds.
template <class Predicate>
std::vector<ServiceReferenceU> references(const std::vector<ServiceRecordPtr>& records,
                                          const Predicate& isWanted) {
    std::vector<ServiceReferenceU> wanted;
    for (const ServiceRecordPtr& record : records) {
        if (isWanted(record)) wanted.push_back(Handles::reference<void>(targetOf(record, {})));
    }
    return wanted;
}

}  // namespace cppmicroservices::detail
