#include "server/AbsentClientsSession.h"

#include <algorithm>
#include <chrono>

#include "connector/wireWords.h"
#include "messages/channelNames.h"

namespace gateway {

using connector::message_service::SubscribeEvent;

namespace {

constexpr const char* streams = connector::wire::channel::allEvalResponses;
constexpr const char* clientType = "kept";
constexpr std::size_t mostEvents = 64;  // channels; clients choose their names

void discard(messages::ClientSession& session) {
    constexpr std::size_t atOnce = std::size_t{1} << 20;
    while (!session.take(atOnce, std::chrono::milliseconds(0)).frames.empty()) continue;
}

}  // namespace

AbsentClientsSession::AbsentClientsSession(messages::LocalMessageService& messages)
    : messages_(messages),
      ofStreams_(messages.watch(
          streams, [this](const auto&) { session()->subscribe(streams); }, [](const auto&) {})),
      ofEvents_(messages.watch(
          connector::wire::channel::allEvents, [this](const auto& event) { keep(event); },
          [](const auto&) {})) {}

AbsentClientsSession::~AbsentClientsSession() = default;

AbsentClientsSession::Session AbsentClientsSession::session() {
    Session session;
    {
        const connector::MutexLock lock(mutex_);
        if (session_) return session_;
        session = session_ = messages_.openSession({.clientType = clientType});
    }
    session->setWakeUp([weak = std::weak_ptr(session)] {
        if (const auto self = weak.lock()) discard(*self);
    });
    return session;
}

void AbsentClientsSession::keep(const SubscribeEvent& event) {
    if (event.clientType == clientType || !messages::isChannelName(event.channel)) return;
    std::string forgotten;
    {
        const connector::MutexLock lock(mutex_);
        std::erase(events_, event.channel);
        events_.push_back(event.channel);
        if (events_.size() > mostEvents) {
            forgotten = std::move(events_.front());
            events_.pop_front();
        }
    }
    session()->subscribe(event.channel);
    if (!forgotten.empty()) session()->unsubscribe(forgotten);
}

}  // namespace gateway
