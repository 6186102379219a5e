#include "messages/LocalServiceFramework.h"

#include <exception>
#include <stdexcept>
#include <typeinfo>

#include "connector/ServiceFramework.h"
#include "connector/detail/deliveryFailure.h"

namespace messages {

using connector::Message;
using MessageFuture = connector::Future<std::unique_ptr<Message>>;

void LocalServiceFramework::registerService(const connector::Address& address,
                                            std::vector<std::type_index> messages,
                                            std::shared_ptr<connector::ServiceProvider> provider) {
    provider->start();
    connector::MutexLock lock(mutex_);
    for (const std::type_index message : messages) {
        providers_.insert_or_assign(Key(address.name, message), provider);
    }
}

void LocalServiceFramework::unregisterService(const std::shared_ptr<connector::ServiceProvider>& provider) {
    {
        connector::MutexLock lock(mutex_);
        std::erase_if(providers_, [&](const auto& entry) { return entry.second == provider; });
    }
    provider->stop();
}

MessageFuture LocalServiceFramework::deliver(const connector::Address& address,
                                             std::unique_ptr<Message> message,
                                             std::shared_ptr<connector::common::ContextState> context) {
    try {
        if (!message) throw std::invalid_argument("There is no message to deliver.");
        const Message& object = *message;
        const auto provider = find(Key(address.name, typeid(object)));
        if (!provider) {
            throw connector::NoService(
                connector::detail::wrongMessageTypeText(acceptedAt(address.name), message.get()));
        }
        if (!context) context = std::make_shared<connector::common::ContextState>();
        const connector::common::CurrentContext current(std::move(context));
        const connector::CurrentDelivery delivery({weak_from_this(), address});
        return provider->handle(std::move(message));
    } catch (...) {
        return connector::makeFailedFuture<std::unique_ptr<Message>>(std::current_exception());
    }
}

std::shared_ptr<connector::ServiceProvider> LocalServiceFramework::find(const Key& key) {
    connector::MutexLock lock(mutex_);
    const auto found = providers_.find(key);
    return found == providers_.end() ? nullptr : found->second;
}

std::string LocalServiceFramework::acceptedAt(const std::string& address) {
    connector::MutexLock lock(mutex_);
    std::string names;
    for (const auto& [key, provider] : providers_) {
        if (key.first == address) names.append(names.empty() ? "" : " or ").append(key.second.name());
    }
    return names.empty() ? "nothing" : names;
}

}  // namespace messages
