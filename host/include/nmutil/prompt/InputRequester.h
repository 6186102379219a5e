#pragma once

#include <cstdint>

namespace nmutil::prompt {

/// Which prompt the interpreter shows, or that it shows none because code is running.
enum InputRequester : std::uint32_t {
    NO_PROMPT = 0xFFFFFFFFU,
    BASE_PROMPT = 0,
    DEBUG_PROMPT = 1,
    INPUT_PROMPT = 2,
    KEYBOARD_PROMPT = 3,
    PAUSE_PROMPT = 4,
    KINETRIX_DEBUG_PROMPT = 6,
    KINETRIX_IN_EDITOR_DEBUG_PROMPT = 7,
    INCOMPLETE_BLOCK_PROMPT = 8,
    MORE_PROMPT = 9,
    DISCRETIX_DEBUG_PROMPT = 10,
    ZF_ENL_DEBUG_PROMPT = 11,
};

}  // namespace nmutil::prompt
