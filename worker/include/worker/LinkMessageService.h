#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "connector/ThreadSafety.h"
#include "connector/message_service/MessageService.h"
#include "link/FrameWriter.h"
#include "link/messages.h"
#include "messages/ChannelTable.h"

namespace worker {

/// The message service of a worker: its services publish and subscribe as in one process, while the clients,
/// the log of messages and its numbers are in the gateway.
///
/// A publish is sent as one frame; then the subscribers here run, so that what they publish follows it at
/// every client. What may be lost waits while the gateway stands still; those who print for a client wait for
/// it before (LinkPace).
///
/// Threads: those of MessageService, any. What the gateway says is told on one thread, the reader, where
/// handlers run: they must not wait for anything that the gateway says later, other than by `watch`. Locks:
/// mutex_; the writer's is taken under it, so that the gateway learns of subscriptions in their order.
/// Handlers, waits and the destructors of handlers run without it.
class LinkMessageService : public connector::message_service::MessageService,
                           public std::enable_shared_from_this<LinkMessageService> {
public:
    using Subscription = connector::message_service::Subscription;

    /// Has the reader, if that is the calling thread, read on until the NoticesEnd of a watch; false on
    /// others.
    using ReadOn = std::function<bool(std::uint64_t watch)>;

    LinkMessageService(std::shared_ptr<links::FrameWriter> writer, ReadOn readOn);

    /// Blocks: also while too much waits that may be lost, for ten seconds at most.
    connector::Future<void> publish(const std::string& channel,
                                    const connector::common::DataBuffer& data) override
        CONNECTOR_EXCLUDES(mutex_);
    std::unique_ptr<Subscription> subscribe(const std::string& pattern, MessageHandler handler) override
        CONNECTOR_EXCLUDES(mutex_);
    /// Its handlers run on the reader.  Blocks: until the gateway has told what is there.
    std::unique_ptr<Subscription> watch(const std::string& pattern, SubscribeHandler subscribed,
                                        UnsubscribeHandler unsubscribed) override CONNECTOR_EXCLUDES(mutex_);

    // Threads: the reader.

    /// A client's message for the subscribers here.
    void deliver(const connector::message_service::JsonMessage& message) CONNECTOR_EXCLUDES(mutex_);
    void tell(std::uint64_t watch, const links::NoticeHead& notice) CONNECTOR_EXCLUDES(mutex_);
    void endNotices(std::uint64_t watch) CONNECTOR_EXCLUDES(mutex_);

    /// Nothing is told any more.  Threads: any.
    void end() CONNECTOR_EXCLUDES(mutex_);

private:
    struct Watch;

    std::shared_ptr<const messages::Recipients> recipientsOf(const std::string& channel)
        CONNECTOR_EXCLUDES(mutex_);
    std::shared_ptr<Watch> findWatch(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);
    void awaitRoom();
    void removeSubscriber(const messages::LocalSubscriber& subscriber, std::uint64_t number)
        CONNECTOR_EXCLUDES(mutex_);
    void removeWatch(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);

    const std::shared_ptr<links::FrameWriter> writer_;
    const ReadOn readOn_;

    connector::Mutex mutex_;
    std::condition_variable told_;  // a watch knows what is there, or nothing is told any more
    messages::ChannelTable table_ CONNECTOR_GUARDED_BY(mutex_);
    std::map<std::string, std::size_t> listeners_ CONNECTOR_GUARDED_BY(mutex_);  // by pattern
    std::map<std::uint64_t, std::shared_ptr<Watch>> watches_ CONNECTOR_GUARDED_BY(mutex_);
    std::uint64_t lastNumber_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isEnded_ CONNECTOR_GUARDED_BY(mutex_) = false;
};

}  // namespace worker
