#pragma once

#include <string>
#include <utility>
#include <vector>

#include "connector/common/v1/FaultCondition.h"

namespace connector::common::v1 {

/// Why a request did not end as asked. Texts are in UTF-8.
struct Fault {
    /// A fault without a code.
    explicit Fault(std::string text) : message(std::move(text)) {}
    Fault(std::string code, std::string text, std::vector<FaultCondition> circumstances = {})
        : faultCode(std::move(code)), message(std::move(text)), conditions(std::move(circumstances)) {}

    std::string faultCode;
    std::string message;
    std::vector<FaultCondition> conditions;
};

}  // namespace connector::common::v1
