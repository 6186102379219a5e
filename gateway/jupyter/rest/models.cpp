#include "jupyter/rest/models.h"

#include <algorithm>
#include <string_view>

#include "connector/json/ObjectBuilder.h"
#include "foundation/core/utcText.h"

namespace gateway::jupyter {

namespace {

/// A word that clients know for it. One that the next request starts is as good as idle, unless it is being
/// started for them.
std::string_view executionState(const interpreters::Desk& desk, const ports::InterpreterState& state) {
    if (state.state == "starting") return "starting";
    if (state.state == "stopping") return "restarting";
    if (state.state == "failed") return "dead";
    if (state.state == "dead" && state.lastDeath && !state.lastDeath->startsAnew) return "dead";
    const std::string_view ofKernel = desk.kernel().executionState();
    return ofKernel == "idle" && state.activity != "idle" ? "busy" : ofKernel;
}

}  // namespace

std::string kernelModel(const interpreters::Desk& desk) {
    const auto state = desk.port().state();
    connector::json::ObjectBuilder model;
    model.add("id", desk.kernel().id())
        .add("name", desk.kernel().isOwn() ? ownKernel : sharedKernel)
        .add("last_activity", timeText(lastActivityOf(desk)))
        .add("execution_state", executionState(desk, state))
        .add("connections", desk.kernel().connections())
        .add("interpreter", desk.id());
    if (state.lastDeath && state.lastDeath->isBad()) model.add("reason", state.lastDeath->sentence());
    return model.take();
}

std::chrono::system_clock::time_point lastActivityOf(const interpreters::Desk& desk) {
    return std::max(desk.port().state().since, desk.kernel().lastActivity());
}

std::string timeText(std::chrono::system_clock::time_point time) {
    auto text = foundation::core::utcText(time);
    return text.insert(text.size() - 1, "000");
}

std::string arrayOf(const std::vector<std::string>& elements) {
    std::string array;
    for (const auto& element : elements) array.append(array.empty() ? "" : ",").append(element);
    return "[" + array + "]";
}

}  // namespace gateway::jupyter
