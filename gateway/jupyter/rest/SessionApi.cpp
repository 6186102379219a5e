#include "jupyter/rest/SessionApi.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "connector/identifiers.h"
#include "connector/json/ObjectBuilder.h"
#include "dispatch/members.h"
#include "interpreters/replyOf.h"
#include "jupyter/rest/KernelApi.h"
#include "jupyter/rest/models.h"
#include "jupyter/rest/startKernel.h"
#include "log.h"

namespace gateway::jupyter {

using connector::json::ObjectBuilder;
using interpreters::Refusal;
using interpreters::replyOf;
using Poco::JSON::Object;

namespace {

/// A session and the interpreter of its kernel.
struct Found {
    Session session;
    std::shared_ptr<interpreters::Desk> desk;
};

std::string modelOf(const Found& found) {
    const auto& session = found.session;
    ObjectBuilder model;
    model.add("id", session.id)
        .add("path", session.path)
        .add("name", session.name)
        .add("type", session.type)
        .addJson("kernel", kernelModel(*found.desk));
    if (session.type == "notebook") {
        model.add("notebook", ObjectBuilder().add("path", session.path).add("name", session.name));
    }
    return model.take();
}

/// Those that may be seen. The others stay, but for those whose kernel has ended.
std::vector<Found> visible(const Ask& ask) {
    std::vector<Found> all;
    ask.sessions.eraseIf([&](const Session& session) {
        const auto desk = kernelNamed(ask.interpreters, session.kernel);
        if (desk && ask.mayUse(*desk)) all.push_back({session, desk});
        return !desk;
    });
    return all;
}

std::ptrdiff_t countOf(const NotebookSessions& sessions, const interpreters::Desk& desk) {
    return std::ranges::count(sessions.all(), desk.kernel().id(), &Session::kernel);
}

template <class Wanted>
Found* find(std::vector<Found>& all, Wanted wanted) {
    const auto found = std::ranges::find_if(all, [&](const Found& each) { return wanted(each.session); });
    return found == all.end() ? nullptr : &*found;
}

/// What a body says of a session, which may be that of a document whatever its path means.
void readInto(Session& session, const Object& body) {
    constexpr std::size_t longest = 4096;
    for (const auto& [name, member] : {std::pair("path", &session.path), std::pair("name", &session.name),
                                       std::pair("type", &session.type)}) {
        if (!body.has(name)) continue;
        *member = textIn(body, name);
        if (member->size() > longest)
            throw dispatch::BadMessage(name + std::string(" must have at most 4096 bytes"));
    }
}

/// The kernel that a body names, or one that is started for it.
std::shared_ptr<interpreters::Desk> kernelOf(const Ask& ask, const Object& wish) {
    const auto id = textIn(wish, "id");
    if (id.empty()) return startKernel(ask, wish);
    auto desk = kernelNamed(ask.interpreters, id);
    if (desk && ask.mayUse(*desk)) return desk;
    throw Refusal(404, noSuchKernel(id));
}

HttpReply started(const Ask& ask) {
    const auto body = bodyOf(ask);
    Found found{
        .session = {.id = {}, .path = {}, .name = {}, .type = "notebook", .kernel = {}, .maker = ask.grant},
        .desk = nullptr};
    readInto(found.session, *body);
    HttpReply reply{.status = 201};
    auto all = visible(ask);
    // A front end that is opened once more goes on with what there is; others may call theirs the same.
    if (const auto* const there = find(all, [&](const Session& other) {
            return !other.path.empty() && other.path == found.session.path &&
                   other.type == found.session.type && other.maker == ask.grant;
        })) {
        found = *there;
    } else {
        const auto wish = body->getObject("kernel");
        found.desk = kernelOf(ask, wish ? *wish : Object());
        found.session.kernel = found.desk->kernel().id();
        found.session.id = connector::randomUuid();
        ask.sessions.put(found.session);
    }
    reply.body = modelOf(found);
    reply.headers.emplace_back("Location", ask.root + "/api/sessions/" + found.session.id);
    return reply;
}

/// A kernel that its last session changes for another one ends, where the token may end it.
HttpReply changed(const Ask& ask, Found& found) {
    const auto before = found.desk;
    const auto body = bodyOf(ask);
    readInto(found.session, *body);
    if (const auto wish = body->getObject("kernel")) {
        found.desk = kernelOf(ask, *wish);
        found.session.kernel = found.desk->kernel().id();
    }
    ask.sessions.put(found.session);
    if (found.desk != before && countOf(ask.sessions, *before) == 0) {
        endKernel(ask, before, [](const HttpReply&) {});
    }
    return {.body = modelOf(found)};
}

/// A kernel ends with its last session, which is not found any more then.
void end(const Ask& ask, const Found& found, const Done& done) {
    if (found.desk->kernel().isOwn() && countOf(ask.sessions, *found.desk) == 1) {
        return endKernel(ask, found.desk, done);
    }
    ask.sessions.eraseIf([&](const Session& session) { return session.id == found.session.id; });
    done({.status = 204, .contentType = {}});
}

void answerAll(const Ask& ask, const Done& done) {
    if (ask.method == HttpMethod::Post) return done(replyOf([&] { return started(ask); }));
    std::vector<std::string> models;
    for (const auto& found : visible(ask)) models.push_back(modelOf(found));
    done({.body = arrayOf(models)});
}

void answerOne(const Ask& ask, const Done& done) {
    auto all = visible(ask);
    auto* const found = find(all, [&](const Session& session) { return session.id == ask.parameter; });
    if (!found) return done(errorReply(404, "There is no session \"" + ask.parameter + "\"."));
    if (ask.method == HttpMethod::Delete) return end(ask, *found, done);
    done(ask.method == HttpMethod::Patch ? replyOf([&] { return changed(ask, *found); })
                                         : HttpReply{.body = modelOf(*found)});
}

void answerInTurn(const Ask& ask, Done done, void (*answer)(const Ask&, const Done&)) {
    ask.sessions.inTurn([ask, done = std::move(done), answer] {
        try {
            answer(ask, done);
        } catch (const std::exception& error) {
            log().error("A request for sessions cannot be answered: " + std::string(error.what()));
            done(errorReply(500, "The server failed."));
        }
    });
}

}  // namespace

void sessions(const Ask& ask, Done done) { answerInTurn(ask, std::move(done), answerAll); }
void session(const Ask& ask, Done done) { answerInTurn(ask, std::move(done), answerOne); }

}  // namespace gateway::jupyter
