#pragma once

#include <string>
#include <string_view>

namespace connector::common {

/// The name of the product that clients of the type `clientType` belong to; empty for a type that is not
/// known.  Threads: any.
std::string getProductNameByClientType(std::string_view clientType);

}  // namespace connector::common
