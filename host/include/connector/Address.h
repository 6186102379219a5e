#pragma once

#include <string>

namespace connector {

/// Names the place where a service is registered. The default is this process.
struct Address {
    std::string name;
    friend bool operator==(const Address&, const Address&) = default;
};

}  // namespace connector
