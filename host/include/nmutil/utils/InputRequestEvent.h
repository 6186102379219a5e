#pragma once

#include "foundation/msg_svc/eventmgr/BaseEvent.h"
#include "nmutil/prompt/InputRequester.h"

namespace nmutil::utils {

/// The prompt that the interpreter shows has changed while code runs: the code waits for input, or goes on.
class InputRequestEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"services::prompt::InputRequestEvent";
    explicit InputRequestEvent(prompt::InputRequester requester)
        : BaseEvent({typeName}), requester_(requester) {}

    prompt::InputRequester getRequester() const { return requester_; }

private:
    prompt::InputRequester requester_;
};

}  // namespace nmutil::utils
