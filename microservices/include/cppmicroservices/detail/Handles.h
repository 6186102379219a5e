#pragma once

#include <memory>
#include <string>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceReference.h"

namespace cppmicroservices {

class BundleContext;
class ServiceRegistrationBase;

namespace detail {

class BundleRecord;
class ContextRecord;
class FrameworkLife;

/// What a reference points to: a registration, by one of its interfaces.
struct ReferenceTarget {
    std::shared_ptr<ServiceRecord> record;
    std::string interfaceId;
};

/// Makes the public handles from what is behind them, and takes them apart.
///
/// Threads: any, each with handles of its own.
struct Handles {
    static Bundle bundle(const std::shared_ptr<BundleRecord>& record);
    static Bundle bundle(std::shared_ptr<BundleRecord> record, std::shared_ptr<FrameworkLife> life);
    static BundleContext context(std::shared_ptr<ContextRecord> record);
    static void setRecord(ServiceRegistrationBase& registration, std::shared_ptr<ServiceRecord> record);
    static std::shared_ptr<const ReferenceTarget> target(const ServiceReferenceBase& reference);

    template <class S>
    static ServiceReference<S> reference(std::shared_ptr<const ReferenceTarget> target) {
        return ServiceReference<S>(std::move(target));
    }
};

}  // namespace detail

}  // namespace cppmicroservices
