#pragma once

#include "cppmicroservices/detail/bundleCode.h"

US_BUNDLE_EXPORT cppmicroservices::detail::ContextCell* US_BUNDLE_SYMBOL(_us_bundle_context_cell_)();

namespace cppmicroservices {

/// The context of the bundle that this code belongs to; false while the bundle is not active.
/// Threads: any.
static inline BundleContext GetBundleContext() { return US_BUNDLE_SYMBOL(_us_bundle_context_cell_)()->get(); }

}  // namespace cppmicroservices
