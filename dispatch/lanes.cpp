#include "dispatch/lanes.h"

#include <string_view>
#include <utility>

#include <Poco/JSON/Array.h>

namespace dispatch {

namespace {

using Poco::JSON::Object;

Lane laneOfCall(const Object& call) {
    constexpr std::pair<std::string_view, Lane> table[] = {
        {"ppe", Lane::RunningCode},
        {"pause", Lane::Pause},
        {"prompt", Lane::Prompt},
        {"non_debug_prompt", Lane::NonDebugPrompt},
        {"debug_prompt", Lane::DebugPrompt},
        {"idle", Lane::Idle},
    };
    const auto mode = call.get("dequeMode");
    if (mode.type() != typeid(std::string)) return Lane::BasePrompt;
    for (const auto& [word, lane] : table) {
        if (mode.extract<std::string>() == word) return lane;
    }
    return Lane::BasePrompt;
}

Lane laneOfEntry(const Object::Ptr& entry) {
    const auto type = entry ? entry->get("type") : Poco::Dynamic::Var();
    const auto message = entry ? entry->getObject("message") : Object::Ptr();
    const bool isCall =
        message && type.type() == typeid(std::string) && type.extract<std::string>() == "connector/v1/FEval";
    return isCall ? laneOfCall(*message) : Lane::BasePrompt;
}

Lane laneOfSequence(const Object& sequence) {
    const auto entries = sequence.getArray("messages");
    if (!entries || entries->size() == 0) return Lane::BasePrompt;
    const Lane first = laneOfEntry(entries->getObject(0));
    for (unsigned i = 1; i < entries->size(); ++i) {
        if (laneOfEntry(entries->getObject(i)) != first) return Lane::BasePrompt;
    }
    return first;
}

}  // namespace

Lane laneOf(const std::string& typeName, const Object& message, bool isReadingInput) {
    if (typeName == "connector/v1/Interrupt") return Lane::Interrupt;
    if (typeName == "connector/v1/FEval") return laneOfCall(message);
    if (typeName == "connector/v1/Sequence") return laneOfSequence(message);
    if (typeName == "connector/v1/Eval" && isReadingInput) return Lane::Input;
    return Lane::BasePrompt;
}

}  // namespace dispatch
