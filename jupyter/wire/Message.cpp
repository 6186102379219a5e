#include "jupyter/Message.h"

namespace jupyter {

const char* nameOf(Channel channel) {
    switch (channel) {
        case Channel::Shell:
            return "shell";
        case Channel::Control:
            return "control";
        case Channel::Stdin:
            return "stdin";
        default:
            return "iopub";
    }
}

std::size_t bytesOf(const Message& message) {
    std::size_t bytes =
        message.header.size() + message.parent.size() + message.metadata.size() + message.content.size();
    for (const auto& buffer : message.buffers) bytes += buffer.size();
    return bytes;
}

}  // namespace jupyter
