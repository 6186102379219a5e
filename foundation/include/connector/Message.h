#pragma once

namespace connector {

/// Base of every message that services exchange. A message has one owner and is never copied.
class Message {
public:
    Message() = default;
    virtual ~Message() = default;
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
};

}  // namespace connector
