#include "dispatch/lanes.h"

#include <array>

#include <Poco/JSON/Array.h>

#include "connector/wireWords.h"

namespace dispatch {

namespace {

using Poco::JSON::Object;
namespace wire = connector::wire;

Lane laneOfCall(const Object& call, const std::string& configured) {
    constexpr std::array<Lane, wire::dequeModes.size()> lanes = {
        Lane::BasePrompt,     Lane::RunningCode, Lane::Pause, Lane::Prompt,
        Lane::NonDebugPrompt, Lane::DebugPrompt, Lane::Idle};
    const auto value = call.get("dequeMode");
    const auto mode = value.type() == typeid(std::string) ? value.extract<std::string>() : std::string();
    return lanes.at(wire::dequeModeNumber(mode.empty() ? configured : mode));
}

Lane laneOfEntry(const Object::Ptr& entry, const std::string& configured) {
    const auto type = entry ? entry->get("type") : Poco::Dynamic::Var();
    const auto message = entry ? entry->getObject("message") : Object::Ptr();
    const bool isCall =
        message && type.type() == typeid(std::string) && type.extract<std::string>() == wire::type::feval;
    return isCall ? laneOfCall(*message, configured) : Lane::BasePrompt;
}

Lane laneOfSequence(const Object& sequence, const std::string& configured) {
    const auto entries = sequence.getArray("messages");
    if (!entries || entries->size() == 0) return Lane::BasePrompt;
    const Lane first = laneOfEntry(entries->getObject(0), configured);
    for (unsigned i = 1; i < entries->size(); ++i) {
        if (laneOfEntry(entries->getObject(i), configured) != first) return Lane::BasePrompt;
    }
    return first;
}

}  // namespace

Lane laneOf(const std::string& typeName, const Object& message, bool isReadingInput,
            const std::string& dequeMode) {
    if (typeName == wire::type::interrupt) return Lane::Interrupt;
    if (typeName == wire::type::feval) return laneOfCall(message, dequeMode);
    if (typeName == wire::type::sequence) return laneOfSequence(message, dequeMode);
    if (typeName == wire::type::eval && isReadingInput) return Lane::Input;
    return Lane::BasePrompt;
}

}  // namespace dispatch
