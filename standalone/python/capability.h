#pragma once

#include <algorithm>
#include <string_view>

#include "cmddistributor/RunOptions.h"

namespace standalone {

/// Whether the client of a request has said that it has a capability. `options` may be null.
inline bool hasCapability(const cmddistributor::RunOptions* options, std::string_view capability) {
    if (options == nullptr || !options->capabilities()) return false;
    const auto& has = *options->capabilities();
    return std::find(has.begin(), has.end(), capability) != has.end();
}

/// The number of the cell that a notebook has it run as; empty where that is not told.
inline std::string_view cellNumber(const cmddistributor::RunOptions* options) {
    constexpr std::string_view prefix = "cell=";
    if (options == nullptr || !options->capabilities()) return {};
    for (const std::string_view capability : *options->capabilities()) {
        if (capability.starts_with(prefix)) return capability.substr(prefix.size());
    }
    return {};
}

}  // namespace standalone
