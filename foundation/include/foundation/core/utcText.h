#pragma once

#include <chrono>
#include <string>

namespace foundation::core {

/// A time as ISO 8601 has it, in UTC: "2026-11-22T08:00:00.123Z".  Threads: any.
std::string utcText(std::chrono::system_clock::time_point time);

}  // namespace foundation::core
