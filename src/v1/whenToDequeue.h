#pragma once

#include <string_view>
#include <utility>

#include "cmddistributor/WhenToDequeue.h"

namespace connector::interpreter::v1 {

/// What the "dequeMode" of a call stands for.
inline cmddistributor::WhenToDequeue whenToDequeue(std::string_view word) {
    using cmddistributor::WhenToDequeue;
    constexpr std::pair<std::string_view, WhenToDequeue> table[] = {
        {"ppe", WhenToDequeue::Ppe},
        {"pause", WhenToDequeue::Pause},
        {"prompt", WhenToDequeue::Prompt},
        {"non_debug_prompt", WhenToDequeue::NonDebugPrompt},
        {"debug_prompt", WhenToDequeue::DebugPrompt},
        {"idle", WhenToDequeue::Idle},
    };
    for (const auto& [name, value] : table) {
        if (name == word) return value;
    }
    return WhenToDequeue::Default;
}

}  // namespace connector::interpreter::v1
