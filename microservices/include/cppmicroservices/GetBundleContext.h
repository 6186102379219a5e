#pragma once

#ifndef US_BUNDLE_NAME
#error "US_BUNDLE_NAME has to be defined as the symbolic name of the bundle"
#endif

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/detail/bundleSymbols.h"

US_BUNDLE_EXPORT void US_BUNDLE_SYMBOL(_us_get_bundle_context_instance_)(
    cppmicroservices::BundleContext* context);

namespace cppmicroservices {

/// The context of the bundle that this code belongs to; false while the bundle is not active.
/// Threads: any.
static inline BundleContext GetBundleContext() {
    BundleContext context;
    US_BUNDLE_SYMBOL(_us_get_bundle_context_instance_)(&context);
    return context;
}

}  // namespace cppmicroservices
