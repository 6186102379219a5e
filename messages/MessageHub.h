#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "MessageLog.h"
#include "MessageMembers.h"
#include "OutgoingQueue.h"
#include "Watcher.h"
#include "connector/ThreadSafety.h"
#include "messages/ChannelTable.h"
#include "messages/LocalMessageService.h"

namespace messages {

/// The core of the message service: the one table of subscriptions, and who watches it. Its operations are
/// those of LocalMessageService and ClientSession; clients are named by the ids of their sessions.
///
/// Threads: any.  Locks: mutex_, for the table; a watcher's mutex may be taken under it. Before it logMutex_,
/// while a message that is logged is numbered and queued for every session, so that numbers rise in each, and
/// while the log is played to one. Handlers, wake-ups and the destructors of handlers run without them.
class MessageHub : public std::enable_shared_from_this<MessageHub> {
public:
    using MessageService = connector::message_service::MessageService;
    using Subscription = connector::message_service::Subscription;
    using Context = std::shared_ptr<connector::common::ContextState>;
    using Patterns = std::vector<std::string>;
    using Pace = connector::common::ClientPace;

    explicit MessageHub(MessageServiceOptions options);

    /// A message carries the name of the request in whose context it is published, and its number where it is
    /// logged, after `members`, unless these have an "ext" already.
    void publish(const std::string& channel, std::string_view data, const Context& context,
                 std::string_view members = {}) CONNECTOR_EXCLUDES(mutex_, logMutex_);
    std::unique_ptr<Subscription> subscribe(const std::string& pattern,
                                            MessageService::MessageHandler handler)
        CONNECTOR_EXCLUDES(mutex_);
    std::unique_ptr<Subscription> watch(const std::string& pattern,
                                        MessageService::SubscribeHandler subscribed,
                                        MessageService::UnsubscribeHandler unsubscribed)
        CONNECTOR_EXCLUDES(mutex_);

    std::shared_ptr<OutgoingQueue> addClient(const std::string& id, const SessionOptions& options)
        CONNECTOR_EXCLUDES(mutex_);
    /// The three change nothing for a client that is not known (any more); the first two return false then.
    bool subscribeClient(const std::string& id, const Patterns& patterns, std::optional<std::uint64_t> after)
        CONNECTOR_EXCLUDES(mutex_, logMutex_);
    bool unsubscribeClient(const std::string& id, const std::string& pattern) CONNECTOR_EXCLUDES(mutex_);
    void removeClient(const std::string& id) CONNECTOR_EXCLUDES(mutex_);

    std::uint64_t lastNumber() CONNECTOR_EXCLUDES(logMutex_);
    void sweep() CONNECTOR_EXCLUDES(mutex_);
    MessageMetrics metrics() CONNECTOR_EXCLUDES(mutex_);

private:
    struct Client {
        std::uint64_t number;
        std::string clientType;
        std::shared_ptr<OutgoingQueue> queue;
        std::vector<std::string> patterns;  // in the order of subscription
    };
    using Clients = std::unordered_map<std::string, Client>;
    using Watchers = std::set<std::shared_ptr<Watcher>>;

    std::shared_ptr<const Recipients> recipientsOf(const std::string& channel) CONNECTOR_EXCLUDES(mutex_);
    /// `owner`: of the request that has caused the message; may be null.
    void queue(const std::string& channel, std::string_view data, const MessageMembers& members,
               const Recipients& recipients, const Pace* owner) CONNECTOR_EXCLUDES(mutex_, logMutex_);
    void queueInPieces(const std::string& channel, std::string_view data, const MessageMembers& members,
                       const Recipients& recipients, const Pace* owner) CONNECTOR_EXCLUDES(mutex_, logMutex_);
    void publishLogged(const std::string& channel, std::string_view data, const MessageMembers& members,
                       const Pace* owner) CONNECTOR_EXCLUDES(mutex_, logMutex_);
    /// The queue of the client; null when it is not known. `added`: those that it did not have before.
    std::shared_ptr<OutgoingQueue> addSubscriptions(const std::string& id, const Patterns& patterns,
                                                    Watchers& concerned, Patterns* added = nullptr)
        CONNECTOR_EXCLUDES(mutex_);
    bool subscribeLogged(const std::string& id, const Patterns& patterns, std::uint64_t after,
                         Watchers& concerned, std::vector<OutgoingQueue::WakeUp>& wakeUps)
        CONNECTOR_EXCLUDES(mutex_, logMutex_);
    void removeSubscriber(const std::string& pattern, std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);
    void removeWatcher(const std::shared_ptr<Watcher>& watcher) CONNECTOR_EXCLUDES(mutex_);
    /// Adds the notice of one change where it is wanted, and these watchers to `concerned`.
    void addNoticeLocked(const Clients::value_type& client, const std::string& pattern, bool isSubscribed,
                         Watchers& concerned) CONNECTOR_REQUIRES(mutex_);

    const MessageServiceOptions options_;
    const std::shared_ptr<MessageCounters> counters_ = std::make_shared<MessageCounters>();

    connector::Mutex logMutex_;
    MessageLog log_ CONNECTOR_GUARDED_BY(logMutex_);

    connector::Mutex mutex_;
    std::uint64_t lastNumber_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    ChannelTable table_ CONNECTOR_GUARDED_BY(mutex_);
    Clients clients_ CONNECTOR_GUARDED_BY(mutex_);
    Watchers watchers_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace messages
