#pragma once

#include <array>
#include <stdexcept>
#include <string_view>

#include "jupyter/Message.h"

namespace jupyter::wire {

/// Throws: std::invalid_argument, for other names.
inline Channel channelNamed(std::string_view name) {
    for (const auto channel : {Channel::Shell, Channel::Control, Channel::Stdin, Channel::Iopub}) {
        if (name == nameOf(channel)) return channel;
    }
    throw std::invalid_argument(R"(channel must be "shell", "control", "stdin" or "iopub".)");
}

}  // namespace jupyter::wire
