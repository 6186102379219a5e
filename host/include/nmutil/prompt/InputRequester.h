#pragma once

#include <cstdint>
#include <string_view>

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

/// The name of a prompt, such as "BASE_PROMPT", by which clients know it.
constexpr std::string_view promptName(InputRequester prompt) {
    switch (prompt) {
        case NO_PROMPT:
            return "NO_PROMPT";
        case BASE_PROMPT:
            return "BASE_PROMPT";
        case DEBUG_PROMPT:
            return "DEBUG_PROMPT";
        case INPUT_PROMPT:
            return "INPUT_PROMPT";
        case KEYBOARD_PROMPT:
            return "KEYBOARD_PROMPT";
        case PAUSE_PROMPT:
            return "PAUSE_PROMPT";
        case KINETRIX_DEBUG_PROMPT:
            return "KINETRIX_DEBUG_PROMPT";
        case KINETRIX_IN_EDITOR_DEBUG_PROMPT:
            return "KINETRIX_IN_EDITOR_DEBUG_PROMPT";
        case INCOMPLETE_BLOCK_PROMPT:
            return "INCOMPLETE_BLOCK_PROMPT";
        case MORE_PROMPT:
            return "MORE_PROMPT";
        case DISCRETIX_DEBUG_PROMPT:
            return "DISCRETIX_DEBUG_PROMPT";
        case ZF_ENL_DEBUG_PROMPT:
            return "ZF_ENL_DEBUG_PROMPT";
    }
    return "unknown prompt type!";
}

}  // namespace nmutil::prompt
