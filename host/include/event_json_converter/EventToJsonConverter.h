#pragma once

#include <map>
#include <string>

#include "foundation/json/Value.h"
#include "foundation/msg_svc/eventmgr/BaseEvent.h"

namespace event_json_converter {

/// Turns events into JSON. A bundle registers one as a service, with the tag of the events that it is for as
/// the property "eventTag": a text, or a list of texts.
class EventToJsonConverter {
public:
    virtual ~EventToJsonConverter() = default;

    /// Puts the members of the JSON object that describes `event` into `members`.
    /// Threads: the event manager's; several at a time when there are several managers.
    /// Throws: std::exception, for an event that it cannot describe, which is then not forwarded.
    virtual void convert(const foundation::msg_svc::eventmgr::BaseEvent& event,
                         std::map<std::string, foundation::json::Value>& members) = 0;
};

}  // namespace event_json_converter
