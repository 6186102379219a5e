#pragma once

#include <string>

namespace connector::common::v1 {

/// One circumstance of a fault.
struct FaultCondition {
    std::string faultId;       ///< in UTF-8
    std::u16string faultInfo;  ///< for the user
};

}  // namespace connector::common::v1
