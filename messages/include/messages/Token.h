#pragma once

#include <functional>
#include <utility>

#include "connector/message_service/MessageService.h"

namespace messages {

/// A subscription that a function ends.
class Token : public connector::message_service::Subscription {
public:
    explicit Token(std::function<void()> end) : end_(std::move(end)) {}
    ~Token() override { end_(); }
    Token(const Token&) = delete;
    Token& operator=(const Token&) = delete;

private:
    const std::function<void()> end_;
};

}  // namespace messages
