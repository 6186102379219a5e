#pragma once

#ifndef US_BUNDLE_NAME
#error "US_BUNDLE_NAME must be defined as the symbolic name of the bundle"
#endif

#include <mutex>
#include <utility>

#include "cppmicroservices/BundleContext.h"

/// The names by which the framework finds what a bundle exports: a prefix and US_BUNDLE_NAME.
#define US_BUNDLE_JOIN_EXPANDED(prefix, name) prefix##name
#define US_BUNDLE_JOIN(prefix, name) US_BUNDLE_JOIN_EXPANDED(prefix, name)
#define US_BUNDLE_SYMBOL(prefix) US_BUNDLE_JOIN(prefix, US_BUNDLE_NAME)

#define US_BUNDLE_EXPORT extern "C" __attribute__((visibility("default")))

namespace cppmicroservices::detail {

/// Holds the context of the bundle that this code belongs to.
///
/// Threads: any.  Locks: its own, a leaf.
class ContextCell {
public:
    BundleContext get() {
        const std::lock_guard lock(mutex_);
        return context_;
    }
    void set(BundleContext context) {
        const std::lock_guard lock(mutex_);
        std::swap(context_, context);
    }

private:
    std::mutex mutex_;
    BundleContext context_;
};

}  // namespace cppmicroservices::detail
