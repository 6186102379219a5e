#include "interpreters/Api.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <Poco/JSON/Object.h>

#include "connector/json/ObjectBuilder.h"
#include "connector/json/parse.h"
#include "dispatch/members.h"
#include "foundation/core/utcText.h"
#include "interpreters/replyOf.h"

namespace gateway::interpreters {

namespace {

using connector::json::ObjectBuilder;
using Kind = dispatch::Member::Kind;

constexpr dispatch::Member restartMembers[] = {
    {"force", Kind::Boolean}, {.name = "life", .kind = Kind::Integer, .most = dispatch::unlimited}};

std::string numberText(double number) {
    std::array<char, 32> digits{};
    return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr};
}

std::string requestJson(const std::optional<ports::InterpreterState::Request>& request) {
    if (!request) return "null";
    return ObjectBuilder()
        .add("type", request->type)
        .add("uuid", request->uuid)
        .add("ms", request->ms)
        .take();
}

std::string infoOf(const Desk& desk) {
    const auto state = desk.port().state();
    ObjectBuilder info;
    info.add("id", desk.id()).add("state", state.state);
    if (state.state == "ready") info.add("activity", state.activity);
    info.add("health", state.health)
        .add("life", state.life)
        .add("since", foundation::core::utcText(state.since))
        .addJson("request", requestJson(state.request))
        .add("memoryBytes", state.memoryBytes)
        .add("processorMs", state.processorMs)
        .add("limits", ObjectBuilder()
                           .add("memoryMiB", state.memoryMiB)
                           .addJson("cpus", numberText(state.cpus))
                           .add("enforcedBy", state.enforcedBy))
        .addJson("lastDeath", state.lastDeath ? state.lastDeath->brief() : "null");
    return info.take();
}

std::string arrayOf(const std::vector<std::string>& elements) {
    std::string array;
    for (const auto& element : elements) array.append(array.empty() ? "" : ",").append(element);
    return "[" + array + "]";
}

struct RestartWish {
    bool force = false;
    std::optional<std::uint64_t> life{};
};

RestartWish readWish(const std::string& body) {
    if (body.empty()) return {};
    const auto value = connector::json::parse(body);
    if (value.type() != typeid(Poco::JSON::Object::Ptr)) {
        throw dispatch::BadMessage("The body must be a JSON object.");
    }
    const auto& object = *value.extract<Poco::JSON::Object::Ptr>();
    std::vector<std::string> unknown;
    dispatch::checkMembers(restartMembers, object, "", unknown);
    dispatch::warnOfUnknown("restart", unknown);
    RestartWish wish{.force = object.optValue<bool>("force", false)};
    if (object.has("life")) wish.life = object.getValue<std::uint64_t>("life");
    return wish;
}

}  // namespace

HttpReply list(const Registry& registry, const access::Grant& grant) {
    std::vector<std::string> infos;
    for (const auto& desk : registry.all()) {
        if (grant.allows(access::Right::Use, desk->id())) infos.push_back(infoOf(*desk));
    }
    return {.body = ObjectBuilder().addJson("interpreters", arrayOf(infos)).take()};
}

HttpReply describe(const Desk& desk) { return {.body = infoOf(desk)}; }

HttpReply create(Registry& registry, const access::Grant& grant, const std::string& body,
                 const CheckVenv& checkVenv) {
    return replyOf([&]() -> HttpReply {
        const auto spec = readSpec(body.empty() ? "{}" : body);
        requireFolders(spec.worker, checkVenv);
        const std::string& id = spec.worker.id;
        if (!grant.covers(id)) {
            throw Refusal(403, "This token may not create the interpreter \"" + id + "\".");
        }
        HttpReply reply{.status = 201, .body = infoOf(*registry.create(spec))};
        reply.headers.emplace_back("Location", "interpreters/" + id);  // beside what was asked for
        return reply;
    });
}

void remove(Registry& registry, const std::string& id, Done done) {
    auto refusal = replyOf([&]() -> HttpReply {
        registry.remove(id, [done] { done({.status = 204, .contentType = {}}); });
        return {};
    });
    if (refusal.status != 200) done(std::move(refusal));
}

void restart(const std::shared_ptr<Desk>& desk, const std::string& body, Done done) {
    RestartWish wish;
    auto problem = replyOf([&]() -> HttpReply {
        wish = readWish(body);
        return {};
    });
    if (problem.status != 200) return done(std::move(problem));
    desk->port().restart(wish.force, wish.life, [desk, done = std::move(done)](dispatch::Answer answer) {
        done(answer.status == 200 ? describe(*desk) : replyFrom(std::move(answer)));
    });
}

HttpReply deaths(const Desk& desk) {
    std::vector<std::string> records;
    for (const auto& record : desk.port().deaths()) records.push_back(record.json());
    return {.body = ObjectBuilder().addJson("deaths", arrayOf(records)).take()};
}

}  // namespace gateway::interpreters
