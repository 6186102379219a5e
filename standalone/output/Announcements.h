#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "connector/common/ContextState.h"
#include "events/LocalEventManager.h"
#include "nmutil/io/NMSink.h"
#include "output/RunningRequests.h"
#include "python/ShownPrompt.h"
#include "python/interpreterLock.h"
#include "standalone/TaggedEvent.h"

namespace standalone {

/// What those who watch the interpreter are told, as events: what is printed, which prompt is shown, what
/// happens to the window, and what Python code raises under a tag. An event has the context of the request
/// that causes it.
///
/// Threads: those that hold the interpreter's lock. A wait for handlers, or for room among the events,
/// releases it.  Locks: the event manager's, which is a leaf.
class Announcements {
public:
    Announcements(std::shared_ptr<LocalEventManager> events, const RunningRequests& running)
        : events_(std::move(events)), running_(running) {}

    const std::shared_ptr<LocalEventManager>& events() const { return events_; }

    /// Raises an event, and goes on when it has been dealt with: what follows must not overtake it. Handlers
    /// may take the interpreter's lock.
    template <class Event>
    void raise(Event&& event) {
        const auto events = events_;  // Python's own threads come back even when this has ended meanwhile
        const connector::common::CurrentContext context(running_.contextOfThisThread());
        events->raise(std::forward<Event>(event), withoutInterpreterLock);
    }

    /// Tells of printed text. Waits for room, not for handlers: nobody's answer depends on them. Where there
    /// is no room in time the text is lost, and what is told next begins with how much was. `isOfRequest`:
    /// whether it is told as that of the request.
    void announceText(nmutil::io::StreamTypeEnum stream, std::u16string_view text, bool isOfRequest = true);

    /// Tells that a prompt is shown, to the queue manager's listeners when it is that of the base level.
    /// Throws: nothing; a failure is logged.
    void announcePrompt(const ShownPrompt& prompt, bool isBaseLevel);

    /// Whether anybody listens to events with this tag. Cheap.
    bool hasSubscribers(std::u16string_view tag) const { return events_->hasSubscribers(tag); }
    /// Raises an event for whoever listens to the tag. Waits for room; `bytes` is the size of the members,
    /// `hasOwner` whether whoever posts waits for a client.
    void post(std::u16string tag, TaggedEvent::Members members, std::size_t bytes, bool hasOwner);

private:
    bool postText(nmutil::io::StreamTypeEnum stream, std::u16string_view text, bool isOfRequest = true);
    void announceLostText();

    const std::shared_ptr<LocalEventManager> events_;
    const RunningRequests& running_;
    std::size_t lostText_ = 0;  // code units that listeners have not been told of
};

}  // namespace standalone
