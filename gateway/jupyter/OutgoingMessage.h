#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>

#include "jupyter/Message.h"
#include "sockets/Speaker.h"

namespace gateway::jupyter {

/// A message on its way to front ends, each of which reads one of two encodings: it is written once in each.
///
/// Threads: one at a time.
class OutgoingMessage {
public:
    /// What is lost first where there is no room.
    enum class Rank {
        Text,    ///< that code has printed
        Output,  ///< what else it has caused
        Answer,  ///< replies, questions and the states of the kernel, for which clients wait
    };

    explicit OutgoingMessage(::jupyter::Message message);

    Rank rank() const { return rank_; }
    /// About as much as it takes in memory.
    std::size_t size() const { return size_; }
    const ::jupyter::Message& message() const { return message_; }

    sockets::OutgoingFrame frame(bool isV1);

    /// Says in the stream stderr of the parent's cell how much of its output is lost.
    static std::shared_ptr<OutgoingMessage> notice(const std::string& parent, std::size_t bytes);

private:
    const ::jupyter::Message message_;
    const Rank rank_;
    const std::size_t size_;
    std::array<sockets::OutgoingFrame, 2> frames_;
};

}  // namespace gateway::jupyter
