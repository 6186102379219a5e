#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "HttpReply.h"
#include "HttpRequest.h"
#include "endpoints/Services.h"
#include "jupyter/rest/Ask.h"

namespace gateway::endpoints {

using Done = std::function<void(HttpReply)>;

/// Answers a request. `done` is called once, before this returns or later, on any thread. When there is a
/// result, the answer may take long and is of no use to a client that has gone; destroying it says so, and
/// then `done` need not be called.
///
/// Threads: any.
using Handler = std::unique_ptr<bayeux::PendingPost> (*)(const Services&, const HttpRequest&, Done);

std::unique_ptr<bayeux::PendingPost> answerMessage(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerEnvelope(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerBayeux(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerInterpreters(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerInterpreter(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerRestart(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerDeaths(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerHealth(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerReadiness(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerMetrics(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerHome(const Services&, const HttpRequest&, Done);
std::unique_ptr<bayeux::PendingPost> answerFile(const Services&, const HttpRequest&, Done);

std::unique_ptr<bayeux::PendingPost> answerNoSuchPath(const Services&, const HttpRequest&, Done);

/// What `request` asks for, as a client of a notebook server.
jupyter::Ask askOf(const Services& services, const HttpRequest& request);
/// Answers it by one of the functions of jupyter/rest/.
template <void (*Answer)(const jupyter::Ask&, Done)>
std::unique_ptr<bayeux::PendingPost> answerNotebook(const Services& services, const HttpRequest& request,
                                                    Done done) {
    Answer(askOf(services, request), std::move(done));
    return nullptr;
}

}  // namespace gateway::endpoints
