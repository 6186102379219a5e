#pragma once

#include <deque>
#include <memory>
#include <string>

#include "connector/ThreadSafety.h"
#include "messages/LocalMessageService.h"

namespace gateway {

/// Subscribes to the streams of evaluations, and to the events that clients have asked for last, in the place
/// of clients that are away. A service publishes prompts and events only while somebody is subscribed, and
/// what is not published can be neither played to a client that comes back nor named to it as missed. It
/// begins with the first client that subscribes.
///
/// Threads: the watchers' and the publishers'.  Locks: mutex_, not while the message service is called.
class AbsentClientsSession {
public:
    explicit AbsentClientsSession(messages::LocalMessageService& messages);
    ~AbsentClientsSession();
    AbsentClientsSession(const AbsentClientsSession&) = delete;
    AbsentClientsSession& operator=(const AbsentClientsSession&) = delete;

private:
    using Session = std::shared_ptr<messages::ClientSession>;

    Session session() EXCLUDES(mutex_);
    void keep(const connector::message_service::SubscribeEvent& event) EXCLUDES(mutex_);

    messages::LocalMessageService& messages_;
    connector::Mutex mutex_;
    Session session_ GUARDED_BY(mutex_);
    std::deque<std::string> events_
        GUARDED_BY(mutex_);  // channels, those that were asked for last at the end
    // Last: they end before the session.
    std::unique_ptr<connector::message_service::Subscription> ofStreams_;
    std::unique_ptr<connector::message_service::Subscription> ofEvents_;
};

}  // namespace gateway
