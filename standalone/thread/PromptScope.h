#pragma once

#include "thread/PromptReader.h"

namespace standalone {

/// Shows, from its construction, that code is running, and what was shown before when it ends, in whatever
/// way.
///
/// Threads: the interpreter thread with the interpreter's lock.
class PromptScope {
public:
    explicit PromptScope(PromptReader& prompts)
        : prompts_(prompts), outer_(prompts.show(nmutil::prompt::NO_PROMPT)) {
        if (outer_ == nmutil::prompt::INCOMPLETE_BLOCK_PROMPT) outer_ = nmutil::prompt::BASE_PROMPT;
    }
    ~PromptScope() {
        if (!isRestored_) restore(false);
    }
    PromptScope(const PromptScope&) = delete;
    PromptScope& operator=(const PromptScope&) = delete;

    /// Tells listeners. Where code waits at a prompt, it goes on doing so for all that they know, whatever
    /// runs meanwhile; where that asked for input itself, the code announces its prompt anew.
    void announce() {
        if (isBaseLevel()) prompts_.announce(nmutil::prompt::NO_PROMPT, true);
    }

    /// Ends it. `isIncomplete`: the code was not run, for want of the rest of its block.
    void restore(bool isIncomplete) {
        isRestored_ = true;
        prompts_.show(isIncomplete ? nmutil::prompt::INCOMPLETE_BLOCK_PROMPT : outer_);
        if (isBaseLevel()) prompts_.announce(prompts_.current(), true);
    }

private:
    bool isBaseLevel() const { return outer_ == nmutil::prompt::BASE_PROMPT; }

    PromptReader& prompts_;
    nmutil::prompt::InputRequester outer_;
    bool isRestored_ = false;
};

}  // namespace standalone
