#include "ports/ClientInterest.h"

#include <stdexcept>
#include <utility>

#include "connector/common/requests.h"
#include "link/messages.h"

namespace gateway::ports {

using connector::common::ContextState;
using connector::common::RequestRefusal;
using connector::message_service::JsonMessage;

namespace {

// A worker that asks for more has gone wrong.
constexpr std::size_t most = 1000;

}  // namespace

void ClientInterest::listen(const std::string& pattern) {
    if (listens_.size() >= most) throw std::invalid_argument("Too many patterns");
    listens_[pattern] =
        messages_.subscribe(pattern, [this](const JsonMessage& message) { forward(message); });
}

void ClientInterest::forward(const JsonMessage& message) {
    if (message.context->has(fromWorker)) return;
    if (writer_.queuedBytes() > messageBytes) {
        message.context->set(RequestRefusal::contextKey,
                             RequestRefusal{429, "the interpreter does not take more messages now"});
        return;
    }
    links::MessageHead head;
    head.channel = message.channel;
    head.clientType = message.context->getOr<std::string>("clientType", std::string());
    writer_.send({.kind = links::Kind::Message, .head = head.encode(), .body = message.data});
}

void ClientInterest::watch(std::uint64_t number, const std::string& pattern) {
    if (watches_.size() >= most) throw std::invalid_argument("Too many watches");
    watches_[number] = messages_.watch(
        pattern,
        [this, number](const auto& event) {
            notice(number, true, event.channel, event.clientId, event.clientType);
        },
        [this, number](const auto& event) {
            notice(number, false, event.channel, event.clientId, event.clientType);
        });
    writer_.send({.kind = links::Kind::NoticesEnd, .id = number});
}

void ClientInterest::notice(std::uint64_t watch, bool isSubscribed, const std::string& channel,
                            const std::string& clientId, const std::string& clientType) {
    links::NoticeHead head;
    head.isSubscribed = isSubscribed;
    head.channel = channel;
    head.clientId = clientId;
    head.clientType = clientType;
    writer_.send({.kind = links::Kind::Notice, .id = watch, .head = head.encode()});
}

}  // namespace gateway::ports
