#include "server/AbsentClientsSession.h"

#include <chrono>

#include "connector/wireWords.h"

namespace gateway {

namespace {

constexpr const char* streams = connector::wire::channel::allEvalResponses;

void discard(messages::ClientSession& session) {
    constexpr std::size_t atOnce = std::size_t{1} << 20;
    while (!session.take(atOnce, std::chrono::milliseconds(0)).frames.empty()) continue;
}

}  // namespace

AbsentClientsSession::AbsentClientsSession(messages::LocalMessageService& messages)
    : messages_(messages),
      watch_(messages.watch(
          streams, [this](const auto&) { begin(); }, [](const auto&) {})) {}

AbsentClientsSession::~AbsentClientsSession() = default;

void AbsentClientsSession::begin() {
    std::shared_ptr<messages::ClientSession> session;
    {
        const connector::MutexLock lock(mutex_);
        if (session_) return;
        session = session_ = messages_.openSession({.clientType = "kept"});
    }
    session->setWakeUp([weak = std::weak_ptr(session)] {
        if (const auto self = weak.lock()) discard(*self);
    });
    session->subscribe(streams);
}

}  // namespace gateway
