#pragma once

#include "cppmicroservices/detail/bundleCode.h"

/// Holds the bundle's context for GetBundleContext. Once in a bundle, at global scope.
///
/// The cell is never destroyed: threads of the bundle may ask for the context while the process ends.
#define CPPMICROSERVICES_INITIALIZE_BUNDLE                                                                 \
    US_BUNDLE_EXPORT cppmicroservices::detail::ContextCell* US_BUNDLE_SYMBOL(_us_bundle_context_cell_)() { \
        static auto* const cell = new cppmicroservices::detail::ContextCell();                             \
        return cell;                                                                                       \
    }                                                                                                      \
    US_BUNDLE_EXPORT void US_BUNDLE_SYMBOL(_us_set_bundle_context_instance_)(                              \
        const cppmicroservices::BundleContext* context) {                                                  \
        US_BUNDLE_SYMBOL(_us_bundle_context_cell_)                                                         \
        ()->set(context != nullptr ? *context : cppmicroservices::BundleContext());                        \
    }
