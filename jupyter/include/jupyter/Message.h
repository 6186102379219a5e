#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace jupyter {

enum class Channel { Shell, Control, Stdin, Iopub };

/// The name of a channel in the WebSocket encodings: "shell", "control", "stdin" or "iopub".
const char* nameOf(Channel channel);

/// Where a message came from, or goes to: what the transport needs in order to find its client again, such as
/// the identities of a ROUTER socket. Empty for iopub.
using Route = std::vector<std::string>;

/// A message of the Jupyter messaging protocol, version 5.5.
///
/// The four parts are JSON objects. Those of clients are kept as they came, byte by byte, so that what names
/// its parent holds exactly the header that the parent had.
///
/// Threads: as a plain value.
struct Message {
    Channel channel = Channel::Shell;
    Route route{};
    std::string header = "{}";
    std::string parent = "{}";
    std::string metadata = "{}";
    std::string content = "{}";
    std::vector<std::string> buffers{};
};

/// Of its parts and buffers.
std::size_t bytesOf(const Message& message);

}  // namespace jupyter
