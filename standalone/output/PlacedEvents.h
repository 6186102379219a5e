#pragma once

#include <string>
#include <string_view>

#include "output/Announcements.h"
#include "output/CommandWindow.h"
#include "output/RunningRequests.h"

namespace standalone {

/// The events under a tag that the host itself raises. They keep their place among text and prompts: what was
/// printed before is sent first, and what comes after waits until the event has been dealt with.
///
/// Threads: those that hold the interpreter's lock, which is released in the waits.
/// Owns: borrows all that it is made with.
class PlacedEvents {
public:
    PlacedEvents(const RunningRequests& running, CommandWindow& window, Announcements& announcements)
        : running_(running), window_(window), announcements_(announcements) {}

    /// Whether anybody listens. Cheap: ask before anything is made ready for an event.
    bool hasSubscribers(std::u16string_view tag) const { return announcements_.hasSubscribers(tag); }
    /// Raises an event if anybody listens. Where the members of its tag name the request, that is added.
    void raise(std::u16string tag, TaggedEvent::Members members);

private:
    const RunningRequests& running_;
    CommandWindow& window_;
    Announcements& announcements_;
};

}  // namespace standalone
