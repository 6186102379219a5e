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

}  // namespace jupyter
