#include "cppmicroservices/detail/Handles.h"

#include "bundles/FrameworkCore.h"
#include "cppmicroservices/BundleContext.h"

namespace cppmicroservices::detail {

Bundle Handles::bundle(const std::shared_ptr<BundleRecord>& record) {
    return {record, record->framework()->life()};
}

Bundle Handles::bundle(std::shared_ptr<BundleRecord> record, std::shared_ptr<FrameworkLife> life) {
    return {std::move(record), std::move(life)};
}

BundleContext Handles::context(std::shared_ptr<ContextRecord> record) {
    BundleContext context;
    context.record_ = std::move(record);
    return context;
}

void Handles::setRecord(ServiceRegistrationBase& registration, std::shared_ptr<ServiceRecord> record) {
    registration.record_ = std::move(record);
}

std::shared_ptr<const ReferenceTarget> Handles::target(const ServiceReferenceBase& reference) {
    return reference.target_.get();
}

}  // namespace cppmicroservices::detail
