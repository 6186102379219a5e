#pragma once

/// The names by which the framework finds what a bundle exports: a prefix and US_BUNDLE_NAME.

#define US_BUNDLE_JOIN_EXPANDED(prefix, name) prefix##name
#define US_BUNDLE_JOIN(prefix, name) US_BUNDLE_JOIN_EXPANDED(prefix, name)
#define US_BUNDLE_SYMBOL(prefix) US_BUNDLE_JOIN(prefix, US_BUNDLE_NAME)

#define US_BUNDLE_EXPORT extern "C" __attribute__((visibility("default")))
