#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <boost/optional.hpp>

namespace capabilities {

/// What the client of a request can show or do, by name.
using CapabilityList = std::vector<std::string>;

/// What identifiers of errors about unsupported features begin with.
inline constexpr std::string_view notSupportedPrefix = "NUMORA:connector:notsupported:";

/// The product that a deployment for remote clients is, for messages.
inline constexpr const char* onlineProductName = "NUMORA Online";

/// What every identifier of an error about a missing capability begins with.
inline constexpr std::string_view missingCapabilityPrefix = "NUMORA:services:MissingRequiredCapability";

/// How the lack of a capability shows.
enum class Lack {
    General,   ///< it is missing, and no product is to be named
    Product,   ///< the product that the client uses does not have it
    Tripwire,  ///< it was not to be needed; the error tells the developer
};

/// The identifier of the error of a function that needs a capability which is not there. An empty `product`
/// is one that is not known; it matters for Lack::Product only.
inline std::string missingCapabilityIdentifier(Lack lack, std::string_view product = {}) {
    std::string general(missingCapabilityPrefix);
    if (lack == Lack::General) return general;
    if (lack == Lack::Tripwire) return general + "_Tripwire";
    return general + (product.empty() ? "_ForUnknownProduct" : "_ForProduct");
}

/// The function to name in that error's message.
inline std::string missingCapabilityFunction(const boost::optional<std::string>& name) {
    return name.value_or("Error: Unable to retrieve function name for MissingRequiredCapability");
}

}  // namespace capabilities
