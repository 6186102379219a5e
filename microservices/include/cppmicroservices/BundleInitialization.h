#pragma once

#ifndef US_BUNDLE_NAME
#error "US_BUNDLE_NAME has to be defined as the symbolic name of the bundle"
#endif

#include <memory>

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/detail/SharedCell.h"
#include "cppmicroservices/detail/bundleSymbols.h"

/// Holds the bundle's context for GetBundleContext. Once in a bundle, at global scope.
///
/// The cell is never destroyed: threads of the bundle may ask for the context while the process ends.
#define CPPMICROSERVICES_INITIALIZE_BUNDLE                                                         \
    static cppmicroservices::detail::SharedCell<const cppmicroservices::BundleContext>&            \
    usBundleContextCell() {                                                                        \
        static auto& cell =                                                                        \
            *new cppmicroservices::detail::SharedCell<const cppmicroservices::BundleContext>();    \
        return cell;                                                                               \
    }                                                                                              \
    US_BUNDLE_EXPORT void US_BUNDLE_SYMBOL(_us_set_bundle_context_instance_)(                      \
        const cppmicroservices::BundleContext* context) {                                          \
        usBundleContextCell().exchange(                                                            \
            context != nullptr ? std::make_shared<const cppmicroservices::BundleContext>(*context) \
                               : nullptr);                                                         \
    }                                                                                              \
    US_BUNDLE_EXPORT void US_BUNDLE_SYMBOL(_us_get_bundle_context_instance_)(                      \
        cppmicroservices::BundleContext * context) {                                               \
        const auto current = usBundleContextCell().get();                                          \
        *context = current ? *current : cppmicroservices::BundleContext();                         \
    }
