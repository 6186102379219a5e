#pragma once

#include <mutex>
#include <vector>

#include "connector/Promise.h"
#include "connector/ThreadSafety.h"
#include "connector/message_service/MessageService.h"

namespace fake {

/// Keeps what is published, in order, and lets a test be the client, also one that breaks the rules. Handlers
/// run on the caller's thread, those of one subscription one at a time.
///
/// Threads: every operation from any thread; ending a subscription waits for its handler on another thread.
class FakeMessageService : public connector::message_service::MessageService,
                           public connector::message_service::MessageServiceFactory,
                           public std::enable_shared_from_this<FakeMessageService> {
public:
    using ContextState = connector::common::ContextState;
    using Subscription = connector::message_service::Subscription;

    connector::Future<std::shared_ptr<MessageService>> create(const std::string&,
                                                              const Properties&) override {
        if (creation) return creation->getFuture();
        return connector::makeReadyFuture<std::shared_ptr<MessageService>>(shared_from_this());
    }
    /// What the factory promises, when it is not to answer at once.
    std::unique_ptr<connector::Promise<std::shared_ptr<MessageService>>> creation;

    /// What was published, each as its channel, a space and its body.
    std::vector<std::string> published() const CONNECTOR_EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        return published_;
    }
    /// Called for each before it counts as published, on the thread that publishes; may throw.
    std::function<void(const std::string& channel)> onPublish;

    /// How many subscriptions to, and watches of, exactly this pattern are open.
    std::size_t subscriptions(const std::string& pattern) {
        std::size_t count = 0;
        each([&](const Handlers& entry) { count += entry.pattern == pattern ? 1 : 0; });
        return count;
    }

    void send(const std::string& channel, const std::string& data,
              const std::shared_ptr<ContextState>& context = std::make_shared<ContextState>()) {
        each([&](const Handlers& entry) {
            if (entry.message && entry.pattern == channel) entry.message({channel, data, context});
        });
    }
    void subscribeClient(const std::string& client, const std::string& channel) {
        each([&](const Handlers& entry) {
            if (entry.subscribed) entry.subscribed({channel, client, {}});
        });
    }
    void unsubscribeClient(const std::string& client, const std::string& channel) {
        each([&](const Handlers& entry) {
            if (entry.unsubscribed) entry.unsubscribed({channel, client, {}});
        });
    }

    connector::Future<void> publish(const std::string& channel,
                                    const connector::common::DataBuffer& data) override
        CONNECTOR_EXCLUDES(mutex_) {
        if (onPublish) onPublish(channel);
        connector::MutexLock lock(mutex_);
        published_.push_back(channel + ' ' + std::string(data.view()));
        return connector::makeReadyFuture();
    }
    std::unique_ptr<Subscription> subscribe(const std::string& pattern, MessageHandler handler) override {
        return std::make_unique<Token>(*this, Handlers{pattern, std::move(handler), nullptr, nullptr});
    }
    std::unique_ptr<Subscription> watch(const std::string& pattern, SubscribeHandler subscribed,
                                        UnsubscribeHandler unsubscribed) override {
        return std::make_unique<Token>(
            *this, Handlers{pattern, nullptr, std::move(subscribed), std::move(unsubscribed)});
    }

private:
    struct Handlers {
        std::string pattern;
        MessageHandler message;
        SubscribeHandler subscribed;
        UnsubscribeHandler unsubscribed;
    };
    struct Entry : Handlers {
        explicit Entry(Handlers handlers) : Handlers(std::move(handlers)) {}
        std::recursive_mutex running;
        bool isActive = true;  // guarded by `running`
    };
    class Token : public Subscription {
    public:
        Token(FakeMessageService& service, Handlers handlers)
            : service_(service.weak_from_this()), entry_(std::make_shared<Entry>(std::move(handlers))) {
            connector::MutexLock lock(service.mutex_);
            service.entries_.push_back(entry_);
        }
        ~Token() override {
            if (const auto service = service_.lock()) {
                connector::MutexLock lock(service->mutex_);
                std::erase(service->entries_, entry_);
            }
            const std::lock_guard lock(entry_->running);
            entry_->isActive = false;
        }

    private:
        const std::weak_ptr<FakeMessageService> service_;
        const std::shared_ptr<Entry> entry_;
    };

    std::vector<std::shared_ptr<Entry>> entries() CONNECTOR_EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        return entries_;
    }
    template <class Call>
    void each(const Call& call) {
        for (const auto& entry : entries()) {
            const std::lock_guard lock(entry->running);
            if (entry->isActive) call(*entry);
        }
    }

    mutable connector::Mutex mutex_;
    std::vector<std::string> published_ CONNECTOR_GUARDED_BY(mutex_);
    std::vector<std::shared_ptr<Entry>> entries_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace fake
