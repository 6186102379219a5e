#pragma once

#include <memory>

#include "connector/ThreadSafety.h"
#include "messages/LocalMessageService.h"

namespace gateway {

/// Listens to the streams of evaluations in the place of clients that are away. A service publishes prompts
/// and other events only while somebody listens, and what is not published cannot be played to a client that
/// comes back. It begins with the first client that listens.
///
/// Threads: the watchers' and the publishers'.  Locks: mutex_, not while the message service is called.
class KeptAudience {
public:
    explicit KeptAudience(messages::LocalMessageService& messages);
    ~KeptAudience();
    KeptAudience(const KeptAudience&) = delete;
    KeptAudience& operator=(const KeptAudience&) = delete;

private:
    void begin() EXCLUDES(mutex_);

    messages::LocalMessageService& messages_;
    connector::Mutex mutex_;
    std::shared_ptr<messages::ClientSession> session_ GUARDED_BY(mutex_);
    std::unique_ptr<connector::message_service::Subscription> watch_;  // last: it ends before the session
};

}  // namespace gateway
