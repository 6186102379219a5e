#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "messages/LocalMessageService.h"

namespace standalone {

struct HostOptions {
    /// Size of the command window, in characters, for requests that do not say theirs.
    std::uint64_t columns = 80;
    std::uint64_t rows = 24;
    /// What native code and child processes write to file descriptors 1 and 2 is captured as interpreter
    /// output, and their standard input is empty.
    bool captureFileDescriptors = true;
    /// Initial configuration values.
    std::map<std::string, std::string> configuration;
    /// Where records of usage are kept, as lines of JSON. Empty: nowhere.
    std::string telemetryFile = {};
    messages::MessageServiceOptions messages = {};
};

}  // namespace standalone
