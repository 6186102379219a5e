#pragma once

#include "foundation/msg_svc/eventmgr/BaseEvent.h"

namespace nmutil::io {

/// Running code moves the cursor of the command window home.
class HomeEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"services::io::HomeEvent";
    HomeEvent() : BaseEvent({typeName}) {}
};

}  // namespace nmutil::io
