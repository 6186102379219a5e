#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "connector/common/RequestOrigin.h"

namespace messages {

/// What a message has beside its channel and its data: members of its own, and those that the service adds
/// below "ext", "connector".
///
/// Threads: as a plain value.
class MessageMembers {
public:
    /// `own`: as in MessageFrame; it must outlive this. With an "ext" among them nothing is added. `origin`:
    /// of the request that has caused the message; may be null.
    MessageMembers(std::string_view own, const connector::common::RequestOrigin* origin);

    /// All of them, as MessageFrame takes them; with `number`, the message's place in the log, unless it is
    /// 0.
    std::string text(std::uint64_t number = 0) const;

private:
    const std::string_view own_;
    const bool hasExtension_;
    std::string ofOrigin_;  // members of "connector"
};

}  // namespace messages
