#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace messages {

/// One message in the form in which clients get it: `{"channel":"/a/b","data":...}`. It never changes, so
/// that all sessions share it. A member is added, in a copy, before the last character of the text.
///
/// Threads: any.
class MessageFrame {
public:
    /// `channel` is a channel's name; `data` one JSON value, taken as it is; `members` what the object has
    /// beside them, each with a comma before it: `,"id":"7"`. `lossClass` is the name under which a full
    /// queue counts the frame when it drops it; empty for one that is never dropped. `number` is the one
    /// under which the log keeps it, 0 for one that is not kept.
    MessageFrame(std::string_view channel, std::string_view data, std::string_view members = {},
                 std::string_view lossClass = {}, std::uint64_t number = 0);

    const std::string& text() const { return text_; }
    std::string_view channel() const { return std::string_view(text_).substr(channelStart, channelSize_); }
    std::string_view data() const { return std::string_view(text_).substr(dataStart_, dataSize_); }
    /// What stands beside channel and data, as in the constructor.
    std::string_view members() const {
        const std::size_t start = dataStart_ + dataSize_;
        return std::string_view(text_).substr(start, text_.size() - start - 1);
    }
    const std::string& lossClass() const { return lossClass_; }
    std::uint64_t number() const { return number_; }

private:
    static constexpr std::string_view beforeChannel = R"({"channel":")";
    static constexpr std::string_view beforeData = R"(","data":)";
    static constexpr std::size_t channelStart = beforeChannel.size();

    const std::size_t channelSize_;
    const std::size_t dataStart_;
    const std::size_t dataSize_;
    const std::string lossClass_;
    const std::uint64_t number_;
    std::string text_;
};

}  // namespace messages
