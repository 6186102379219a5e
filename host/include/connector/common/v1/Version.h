#pragma once

#include <cstdint>

namespace connector::common::v1 {

/// The version of a message's form. What is built by default is the form of the "connector/v1" types.
struct Version {
    std::int32_t majorNumber = 1;
    std::int32_t minorNumber = 0;

    bool operator==(const Version&) const = default;
};

}  // namespace connector::common::v1
