#pragma once

#include <cstdint>

namespace cmddistributor {

/// At which state of the interpreter a request may be taken from the queue.
enum class WhenToDequeue : std::int32_t {
    Default = 0,         ///< at the base prompt, in order of arrival
    Ppe = 1,             ///< at any prompt, and while code runs
    Pause = 2,           ///< at the base prompt or while paused
    Prompt = 3,          ///< at any prompt
    NonDebugPrompt = 4,  ///< at any prompt but a debug prompt
    DebugPrompt = 5,     ///< at a debug prompt only
    Idle = 6,            ///< at the base prompt, when nothing else is queued
};

}  // namespace cmddistributor
