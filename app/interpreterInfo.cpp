#include "interpreterInfo.h"

namespace app {

using Poco::JSON::Object;

namespace {

constexpr std::size_t longestCause = 40;  // characters in a table

}  // namespace

std::string textIn(const Object& info, const char* name) { return info.optValue<std::string>(name, ""); }

std::string stateOf(const Object& info) {
    std::string state = textIn(info, "state");
    if (state != "ready") return state;
    const auto health = textIn(info, "health");
    return state + ", " + textIn(info, "activity") + (health.empty() || health == "ok" ? "" : ", " + health);
}

std::string memoryOf(const Object& info) {
    return std::to_string(info.optValue<Poco::UInt64>("memoryBytes", 0) >> 20) + " MiB";
}

std::string lastDeathOf(const Object& info) {
    const auto death = info.getObject("lastDeath");
    if (!death) return "";
    const auto cause = textIn(*death, "cause");
    const auto detail = textIn(*death, "detail");
    const bool isDetailed = (cause == "signal" || cause == "exit status") && !detail.empty();
    return textIn(*death, "ended") + "  " + (isDetailed ? detail : cause).substr(0, longestCause);
}

}  // namespace app
