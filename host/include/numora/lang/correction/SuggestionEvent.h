#pragma once

#include <string>
#include <utility>

#include "foundation/msg_svc/eventmgr/BaseEvent.h"

namespace numora::lang::correction {

/// A name in the code is unknown, and `getText` is one that may have been meant.
class SuggestionEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"numora::lang::correction::SuggestionEvent";

    /// A suggestion goes where its error goes. `isQuiet` marks one that belongs to the text of a captured
    /// evaluation and is not announced by itself, `isElsewhere` one whose error no command window shows.
    explicit SuggestionEvent(std::u16string text, bool isQuiet = false, bool isElsewhere = false)
        : BaseEvent({typeName}), text_(std::move(text)), isQuiet_(isQuiet), isElsewhere_(isElsewhere) {}

    const std::u16string& getText() const { return text_; }
    bool isQuiet() const { return isQuiet_; }
    bool isElsewhere() const { return isElsewhere_; }

private:
    std::u16string text_;
    bool isQuiet_;
    bool isElsewhere_;
};

}  // namespace numora::lang::correction
