#include "jupyter/rest/KernelApi.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "connector/json/ObjectBuilder.h"
#include "interpreters/replyOf.h"
#include "jupyter/rest/models.h"
#include "jupyter/rest/startKernel.h"

namespace gateway::jupyter {

using connector::json::ObjectBuilder;
using interpreters::Desk;
using interpreters::Refusal;

namespace {

using DeskPtr = std::shared_ptr<Desk>;

std::vector<DeskPtr> usable(const Ask& ask) {
    auto desks = ask.interpreters.all();
    std::erase_if(desks, [&](const DeskPtr& desk) { return !ask.mayUse(*desk); });
    return desks;
}

HttpReply started(const Ask& ask) {
    const auto desk = startKernel(ask, *bodyOf(ask));
    HttpReply reply{.status = 201, .body = kernelModel(*desk)};
    reply.headers.emplace_back("Location", ask.root + "/api/kernels/" + desk->kernel().id());
    return reply;
}

}  // namespace

// That of the server whose paths these are, where clients compare it.
void version(const Ask&, Done done) { done({.body = R"({"version":"2.0.0"})"}); }

void status(const Ask& ask, Done done) {
    auto lastActivity = ask.sessions.begin();
    std::size_t connections = 0;
    const auto desks = usable(ask);
    for (const auto& desk : desks) {
        connections += desk->kernel().connections();
        lastActivity = std::max(lastActivity, lastActivityOf(*desk));
    }
    done({.body = ObjectBuilder()
                      .add("started", timeText(ask.sessions.begin()))
                      .add("last_activity", timeText(lastActivity))
                      .add("connections", connections)
                      .add("kernels", desks.size())
                      .take()});
}

void kernels(const Ask& ask, Done done) {
    if (ask.method == HttpMethod::Post) return done(interpreters::replyOf([&] { return started(ask); }));
    std::vector<std::string> models;
    for (const auto& desk : usable(ask)) models.push_back(kernelModel(*desk));
    done({.body = arrayOf(models)});
}

void kernel(const Ask& ask, Done done) {
    if (ask.method == HttpMethod::Delete) return endKernel(ask, ask.desk, std::move(done));
    done({.body = kernelModel(*ask.desk)});
}

void interruptKernel(const Ask& ask, Done done) {
    ask.desk->kernel().interrupt();
    done({.status = 204, .contentType = {}});
}

void restartKernel(const Ask& ask, Done done) {
    ask.desk->kernel().restart(
        [desk = ask.desk, done = std::move(done)](int status, const std::string& reason) {
            done(status == 200 ? HttpReply{.body = kernelModel(*desk)} : errorReply(status, reason));
        });
}

void endKernel(const Ask& ask, const DeskPtr& desk, Done done) {
    const auto ended = [done] { done({.status = 204, .contentType = {}}); };
    if (!desk->kernel().isOwn()) return ended();
    auto refusal = interpreters::replyOf([&]() -> HttpReply {
        if (!ask.grant->allows(access::Right::Create, desk->id())) {
            throw Refusal(403, "This token may not delete the interpreter \"" + desk->id() + "\".");
        }
        ask.interpreters.remove(desk->id(), ended);
        return {};
    });
    if (refusal.status != 200) done(std::move(refusal));
}

DeskPtr kernelNamed(const interpreters::Registry& registry, std::string_view id) {
    for (auto& desk : registry.all()) {
        if (desk->kernel().id() == id) return desk;
    }
    return nullptr;
}

std::string noSuchKernel(std::string_view id) { return "There is no kernel \"" + std::string(id) + "\"."; }

}  // namespace gateway::jupyter
