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

}  // namespace standalone
