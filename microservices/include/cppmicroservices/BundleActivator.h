#pragma once

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/detail/bundleCode.h"

namespace cppmicroservices {

/// What a bundle does when it is started and stopped. It is made for each start and deleted after the stop.
///
/// Threads: both operations on the thread that starts or stops the bundle, never two at once. They must not
/// start or stop this bundle.  Throws: anything; see Bundle.
struct BundleActivator {
    virtual ~BundleActivator() = default;
    virtual void Start(BundleContext context) = 0;
    virtual void Stop(BundleContext context) = 0;
};

}  // namespace cppmicroservices

/// Makes `Type` the bundle's activator. Once in a bundle, at global scope, after the class.
#define CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Type)                                                 \
    US_BUNDLE_EXPORT cppmicroservices::BundleActivator* US_BUNDLE_SYMBOL(_us_create_activator_)() {    \
        return new Type();                                                                             \
    }                                                                                                  \
    US_BUNDLE_EXPORT void US_BUNDLE_SYMBOL(_us_destroy_activator_)(cppmicroservices::BundleActivator * \
                                                                   activator) {                        \
        delete activator;                                                                              \
    }
