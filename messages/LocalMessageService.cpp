#include "messages/LocalMessageService.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <sys/random.h>

#include "MessageHub.h"

namespace messages {

using connector::Future;
using connector::message_service::MessageService;
using connector::message_service::Subscription;

namespace {

std::string makeSessionId() {
    std::array<unsigned char, 20> random{};
    // A request of this size comes whole, or not at all.
    while (getrandom(random.data(), random.size(), 0) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "No random bits");
    }
    constexpr std::string_view digits = "0123456789abcdef";
    std::string id;
    for (const auto byte : random) {
        id.push_back(digits[byte >> 4]);
        id.push_back(digits[byte & 15]);
    }
    return id;
}

}  // namespace

LocalMessageService::LocalMessageService(MessageServiceOptions options)
    : hub_(std::make_shared<MessageHub>(std::move(options))) {}

LocalMessageService::~LocalMessageService() = default;

Future<void> LocalMessageService::publish(const std::string& channel,
                                          const connector::common::DataBuffer& data) {
    hub_->publish(channel, data.view(), connector::common::ContextState::current());
    return connector::makeReadyFuture();
}

std::unique_ptr<Subscription> LocalMessageService::subscribe(const std::string& pattern,
                                                             MessageHandler handler) {
    return hub_->subscribe(pattern, std::move(handler));
}

std::unique_ptr<Subscription> LocalMessageService::watch(const std::string& pattern,
                                                         SubscribeHandler subscribed,
                                                         UnsubscribeHandler unsubscribed) {
    return hub_->watch(pattern, std::move(subscribed), std::move(unsubscribed));
}

std::shared_ptr<ClientSession> LocalMessageService::openSession(const SessionOptions& options) {
    auto id = makeSessionId();
    auto queue = hub_->addClient(id, options);
    return std::make_shared<ClientSession>(hub_, std::move(id), options.clientType, std::move(queue));
}

void LocalMessageService::sweep() { hub_->sweep(); }

MessageMetrics LocalMessageService::metrics() const { return hub_->metrics(); }

Future<std::shared_ptr<MessageService>> LocalMessageServiceFactory::create(const std::string& /*name*/,
                                                                           const Properties& /*properties*/) {
    return connector::makeReadyFuture(service_);
}

}  // namespace messages
