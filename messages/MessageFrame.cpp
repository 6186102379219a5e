#include "messages/MessageFrame.h"

namespace messages {

MessageFrame::MessageFrame(std::string_view channel, std::string_view data, std::string_view members,
                           std::string_view lossClass, std::uint64_t number)
    : channelSize_(channel.size()),
      dataStart_(channelStart + channel.size() + beforeData.size()),
      dataSize_(data.size()),
      lossClass_(lossClass),
      number_(number) {
    text_.reserve(dataStart_ + data.size() + members.size() + 1);
    text_.append(beforeChannel)
        .append(channel)
        .append(beforeData)
        .append(data)
        .append(members)
        .push_back('}');
}

}  // namespace messages
