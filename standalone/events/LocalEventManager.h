#pragma once

#include <memory>
#include <string>
#include <vector>

#include "connector/ThreadSafety.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"

namespace standalone {

/// The event manager of the embedded interpreter. Handlers run on the thread that raises.
///
/// Threads: any.  Locks: mutex_, a leaf, for the table; handlers run without it.
class LocalEventManager : public foundation::msg_svc::eventmgr::EventMgr,
                          public std::enable_shared_from_this<LocalEventManager> {
public:
    void raise(const foundation::msg_svc::eventmgr::BaseEvent& event) override EXCLUDES(mutex_);

protected:
    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> subscribeImpl(std::u16string typeName,
                                                                             std::u16string userTag,
                                                                             Handler handler) override
        EXCLUDES(mutex_);

private:
    struct Subscription;
    class LocalConnection;

    void remove(const std::shared_ptr<Subscription>& subscription) EXCLUDES(mutex_);

    connector::Mutex mutex_;
    std::vector<std::shared_ptr<Subscription>> subscriptions_ GUARDED_BY(mutex_);
};

}  // namespace standalone
