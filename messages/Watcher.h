#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <string>

#include "connector/ThreadSafety.h"
#include "connector/message_service/MessageService.h"
#include "messages/HandlerGate.h"

namespace messages {

/// A client has subscribed or unsubscribed.
struct Notice {
    bool isSubscribed;
    std::string channel;
    std::string clientId;
    std::string clientType;
};

/// Tells one watcher of clients' subscriptions, one notice at a time, in the order in which they were added.
/// A thread that finds another one telling leaves its notices to that one.
///
/// Threads: any.  Locks: mutex_, a leaf; handlers run without it. The queue holds no more than the
/// subscriptions that were there at the start and one change of each thread, because a thread waits until its
/// own is told, unless it is inside a handler.
class Watcher {
public:
    using MessageService = connector::message_service::MessageService;

    Watcher(std::string pattern, MessageService::SubscribeHandler subscribed,
            MessageService::UnsubscribeHandler unsubscribed);

    const std::string& pattern() const { return pattern_; }

    void add(Notice notice) CONNECTOR_EXCLUDES(mutex_);

    /// Tells what was added before the watcher was known to other threads; they tell nothing until then.
    void start() CONNECTOR_EXCLUDES(mutex_);

    /// Tells what was added.
    /// Blocks: until it is told by this thread or another; inside a handler not for another.
    void tell() CONNECTOR_EXCLUDES(mutex_);

    /// Calls no handler any more: HandlerGate::end.
    void end() { gate_.end(); }

private:
    void tellAll() CONNECTOR_EXCLUDES(mutex_);
    void call(const Notice& notice);

    const std::string pattern_;
    const MessageService::SubscribeHandler subscribed_;
    const MessageService::UnsubscribeHandler unsubscribed_;
    HandlerGate gate_;

    connector::Mutex mutex_;
    std::condition_variable progress_;
    std::deque<Notice> notices_ CONNECTOR_GUARDED_BY(mutex_);
    std::uint64_t added_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::uint64_t told_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isTelling_ CONNECTOR_GUARDED_BY(mutex_) = true;  // until start() is through
};

}  // namespace messages
