#pragma once

#include <string>
#include <utility>

#include "foundation/msg_svc/eventmgr/BaseEvent.h"

namespace numora::lang::correction {

/// A name in the code is unknown, and `getText` is one that may have been meant.
class SuggestionEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"numora::lang::correction::SuggestionEvent";

    /// `isQuiet` marks a suggestion that belongs to the text of an evaluation but is not announced by itself.
    explicit SuggestionEvent(std::u16string text, bool isQuiet = false)
        : BaseEvent({typeName}), text_(std::move(text)), isQuiet_(isQuiet) {}

    const std::u16string& getText() const { return text_; }
    bool isQuiet() const { return isQuiet_; }

private:
    std::u16string text_;
    bool isQuiet_;
};

}  // namespace numora::lang::correction
