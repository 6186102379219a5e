#include "messages/LocalMessageService.h"

#include "MessageHub.h"
#include "connector/identifiers.h"

namespace messages {

using connector::Future;
using connector::message_service::MessageService;
using connector::message_service::Subscription;

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
    auto id = connector::randomIdentifier();
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
