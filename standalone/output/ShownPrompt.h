#pragma once

#include <cstdint>

#include "nmutil/prompt/InputRequester.h"

namespace standalone {

/// A prompt as those who watch are told of it.
struct ShownPrompt {
    nmutil::prompt::InputRequester requester = nmutil::prompt::BASE_PROMPT;
    /// Of the question that input can be typed for, counted from 1; 0 where none is waited for.
    std::uint64_t number = 0;
    /// False where what is typed is not to be shown.
    bool isEchoed = true;

    bool operator==(const ShownPrompt&) const = default;
};

}  // namespace standalone
