#pragma once

#include <cstddef>
#include <string>

#include <Poco/JSON/Object.h>

namespace dispatch {

/// What a request waits for before it runs. Those that wait for the same thing share threads, and so are held
/// up by nothing but their like: however many wait for the running code to end, a call that runs inside it
/// gets through, and so does the input that this code waits for.
enum class Lane : std::size_t {
    BasePrompt,  ///< evaluations, calls that name no other state, and whatever else there is
    Input,       ///< evaluations that come while code reads typed input, until it no longer does
    RunningCode,
    Pause,
    Prompt,
    NonDebugPrompt,
    DebugPrompt,
    Idle,
    Interrupt,  ///< never waits
};
inline constexpr std::size_t laneCount = 9;

/// The lane of a message of type `typeName`: for a call, that of its "dequeMode", or of `dequeMode` where it
/// has none; for a sequence, the one that all its messages share, if they do.
Lane laneOf(const std::string& typeName, const Poco::JSON::Object& message, bool isReadingInput,
            const std::string& dequeMode);

}  // namespace dispatch
