#pragma once

#include "foundation/msg_svc/eventmgr/BaseEvent.h"

namespace nmutil::io {

/// Running code clears the command window.
class CLCEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"services::io::CLCEvent";
    CLCEvent() : BaseEvent({typeName}) {}
};

}  // namespace nmutil::io
