#pragma once

#include "foundation/msg_svc/eventmgr/BaseEvent.h"
#include "nmutil/prompt/InputRequester.h"

namespace nmutil::utils {

/// The queue manager begins to run code, or waits for the next command: the prompt is the one shown then.
class IqmInputRequestEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"iqm::IqmInputRequestEvent";
    explicit IqmInputRequestEvent(prompt::InputRequester requester)
        : BaseEvent({typeName}), requester_(requester) {}

    prompt::InputRequester getRequester() const { return requester_; }

private:
    prompt::InputRequester requester_;
};

}  // namespace nmutil::utils
