#pragma once

#include <string_view>

#include "cmddistributor/RunOptions.h"
#include "connector/wireWords.h"

namespace connector::interpreter::v1 {

/// What the "dequeMode" of a call stands for.
inline cmddistributor::WhenToDequeue whenToDequeue(std::string_view word) {
    return static_cast<cmddistributor::WhenToDequeue>(wire::dequeModeNumber(word));
}

}  // namespace connector::interpreter::v1
