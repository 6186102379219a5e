#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "foundation/msg_svc/eventmgr/BaseEvent.h"
#include "foundation/msg_svc/eventmgr/Connection.h"

namespace foundation::msg_svc::eventmgr {

/// Delivers the interpreter's events to whoever subscribed.
///
/// Threads: every operation from any thread. Handlers run one at a time, in the order of the events.
class EventMgr {
public:
    using Handler = std::function<void(const BaseEvent&)>;

    virtual ~EventMgr() = default;

    /// Calls `handler` for every event of type `E`, until the connection is ended. Subscribing to BaseEvent
    /// with a user tag receives every event that carries the tag.
    /// Throws: std::bad_alloc.  An exception that the handler throws is logged and goes no further.
    template <class E, class F>
    std::unique_ptr<Connection> subscribe(F handler, const std::u16string& userTag = {}) {
        return subscribeImpl(E::typeName, userTag, [handler = std::move(handler)](const BaseEvent& event) {
            handler(static_cast<const E&>(event));
        });
    }

    /// Delivers `event` and returns when its handlers have run.
    /// Blocks: while handlers run. A handler may raise an event itself.
    virtual void raise(const BaseEvent& event) = 0;

protected:
    virtual std::unique_ptr<Connection> subscribeImpl(std::u16string typeName, std::u16string userTag,
                                                      Handler handler) = 0;
};

}  // namespace foundation::msg_svc::eventmgr
