#pragma once

#include <map>
#include <string>
#include <utility>

#include "foundation/json/Value.h"
#include "foundation/msg_svc/eventmgr/BaseEvent.h"

namespace standalone {

/// An event of this host for whoever subscribes to its tag: what is in it is for clients, as members of a
/// JSON object. docs/events.md describes those of each tag.
class TaggedEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    using Members = std::map<std::string, foundation::json::Value>;

    static constexpr const char16_t* typeName = u"standalone::TaggedEvent";
    /// A member of the tag "display" that is not for clients: a cell of a notebook shows it.
    static constexpr const char* ofNotebook = "ofNotebook";

    TaggedEvent(std::u16string tag, Members eventMembers)
        : BaseEvent({typeName, {std::move(tag)}}), members(std::move(eventMembers)) {}

    const Members members;
};

}  // namespace standalone
