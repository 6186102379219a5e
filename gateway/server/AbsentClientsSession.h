#pragma once

#include <memory>

#include "connector/ThreadSafety.h"
#include "messages/LocalMessageService.h"

namespace gateway {

/// Subscribes to the streams of evaluations in the place of clients that are away. A service publishes
/// prompts and other events only while somebody is subscribed, and what is not published cannot be played to
/// a client that comes back. It begins with the first client that subscribes.
///
/// Threads: the watchers' and the publishers'.  Locks: mutex_, not while the message service is called.
class AbsentClientsSession {
public:
    explicit AbsentClientsSession(messages::LocalMessageService& messages);
    ~AbsentClientsSession();
    AbsentClientsSession(const AbsentClientsSession&) = delete;
    AbsentClientsSession& operator=(const AbsentClientsSession&) = delete;

private:
    void begin() EXCLUDES(mutex_);

    messages::LocalMessageService& messages_;
    connector::Mutex mutex_;
    std::shared_ptr<messages::ClientSession> session_ GUARDED_BY(mutex_);
    std::unique_ptr<connector::message_service::Subscription> watch_;  // last: it ends before the session
};

}  // namespace gateway
