#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

#include "connector/wireWords.h"

/// The keys of the configuration that this system reads.
namespace connector::configuration {

/// The state of the interpreter that calls wait for which name none: one of wire::dequeModes.
inline constexpr const char* dequeModeKey = "connector.interpreter.dequeMode";
/// The absolute path of the file that records of usage are added to; empty: none is.
inline constexpr const char* telemetryFileKey = "connector.interpreter.telemetryFile";

/// Throws: std::invalid_argument, which names the key and says what must be, unless it is one of these and
/// may have this value.  Threads: any.
inline void requireSetting(std::string_view key, std::string_view value) {
    constexpr std::size_t longestPath = 4096;
    const auto fail = [key](const std::string& problem) {
        throw std::invalid_argument(std::string(key) + problem);
    };
    if (key == dequeModeKey) {
        if (std::ranges::find(wire::dequeModes, value) != wire::dequeModes.end()) return;
        std::string words;
        for (const auto word : wire::dequeModes) words.append(words.empty() ? "" : ", ").append(word);
        fail(" must be one of " + words);
    }
    if (key == telemetryFileKey) {
        const bool isPath = value.starts_with('/') && value.find('\0') == std::string_view::npos;
        if (value.empty() || (isPath && value.size() < longestPath)) return;
        fail(" must be an absolute path, or empty");
    }
    fail(std::string(" is not a known key; there are ") + dequeModeKey + " and " + telemetryFileKey);
}

}  // namespace connector::configuration
