#include "output/promptEvents.h"

#include <exception>
#include <string>
#include <utility>

#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"

namespace standalone {

namespace {

void raiseStatus(PlacedEvents& events, const ShownPrompt& prompt) {
    if (!events.hasSubscribers(u"status")) return;
    TaggedEvent::Members members{{"state", std::string(stateAt(prompt.requester))},
                                 {"prompt", std::string(promptName(prompt.requester))}};
    if (prompt.number > 0) {
        members.emplace("number", prompt.number);
        members.emplace("echo", prompt.isEchoed);
    }
    events.raise(u"status", std::move(members));
}

void raiseInput(PlacedEvents& events, const ShownPrompt& prompt) {
    if (prompt.number == 0 || !events.hasSubscribers(u"input")) return;
    events.raise(u"input", {{"prompt", fl::i18n::to_string(prompt.text)},
                            {"password", !prompt.isEchoed},
                            {"number", prompt.number}});
}

}  // namespace

const char* stateAt(nmutil::prompt::InputRequester prompt) {
    using namespace nmutil::prompt;  // the values
    if (prompt == NO_PROMPT) return "busy";
    return prompt == BASE_PROMPT || prompt == INCOMPLETE_BLOCK_PROMPT ? "idle" : "input";
}

void raisePromptEvents(PlacedEvents& events, const ShownPrompt& prompt) {
    try {
        raiseStatus(events, prompt);
        raiseInput(events, prompt);
    } catch (const std::exception& error) {
        foundation::log::DiagnosticLogger("standalone::interpreter")
            .error("The events of a prompt could not be raised: " + std::string(error.what()));
    }
}

}  // namespace standalone
