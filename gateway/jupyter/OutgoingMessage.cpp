#include "jupyter/OutgoingMessage.h"

#include <chrono>
#include <utility>

#include "connector/identifiers.h"
#include "connector/json/ObjectBuilder.h"
#include "foundation/core/utcText.h"
#include "jupyter/wire/WebSocket.h"
#include "jupyter/wire/rawMembers.h"

namespace gateway::jupyter {

using connector::json::ObjectBuilder;
using ::jupyter::Message;

namespace {

OutgoingMessage::Rank rankOf(const Message& message) {
    using enum OutgoingMessage::Rank;
    const auto type = ::jupyter::wire::textIn(message.header, "msg_type");
    if (message.channel != ::jupyter::Channel::Iopub || type == "status") return Answer;
    return type == "stream" ? Text : Output;
}

std::size_t sizeOf(const Message& message) {
    constexpr std::size_t overhead = 512;
    std::size_t size = overhead + message.header.size() + message.parent.size() + message.content.size();
    for (const auto& buffer : message.buffers) size += buffer.size();
    return size;
}

}  // namespace

OutgoingMessage::OutgoingMessage(Message message)
    : message_(std::move(message)), rank_(rankOf(message_)), size_(sizeOf(message_)) {}

sockets::OutgoingFrame OutgoingMessage::frame(bool isV1) {
    using Form = sockets::OutgoingFrame::Form;
    auto& frame = frames_.at(isV1 ? 1 : 0);
    if (frame.pieces.empty()) {
        auto encoded = isV1 ? ::jupyter::wire::encodeV1(message_) : ::jupyter::wire::encodeDefault(message_);
        frame.form = encoded.isText ? Form::Text : Form::Binary;
        frame.pieces.add(std::move(encoded.data));
    }
    return frame;
}

std::shared_ptr<OutgoingMessage> OutgoingMessage::notice(const std::string& parent, std::size_t bytes) {
    Message message;
    message.channel = ::jupyter::Channel::Iopub;
    message.header = ObjectBuilder()
                         .add("msg_id", connector::randomUuid())
                         .add("msg_type", "stream")
                         .add("session", "gateway")
                         .add("username", "numora")
                         .add("date", foundation::core::utcText(std::chrono::system_clock::now()))
                         .add("version", "5.5")
                         .take();
    message.parent = parent;
    message.content = ObjectBuilder()
                          .add("name", "stderr")
                          .add("text", "[" + std::to_string(bytes) +
                                           " bytes of output were lost, because this front end did not take "
                                           "them.]\n")
                          .take();
    return std::make_shared<OutgoingMessage>(std::move(message));
}

}  // namespace gateway::jupyter
