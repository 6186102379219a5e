#pragma once

#include <cstdint>
#include <string>

#include "nmutil/prompt/InputRequester.h"

namespace standalone {

/// A prompt as those who watch are told of it.
struct ShownPrompt {
    nmutil::prompt::InputRequester requester = nmutil::prompt::BASE_PROMPT;
    /// Of the question that input can be typed for, counted from 1; 0 where none is waited for.
    std::uint64_t number = 0;
    /// False where what is typed is not to be shown.
    bool isEchoed = true;
    /// What the code asks, in UTF-16; empty where it has printed that itself.
    std::u16string text{};

    bool operator==(const ShownPrompt&) const = default;
};

}  // namespace standalone
