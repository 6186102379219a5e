#include "bayeux/Flusher.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "bayeux/Session.h"

namespace gateway::bayeux {

using connector::MutexLock;

namespace {

constexpr auto longestWait = std::chrono::microseconds(500);
constexpr int enoughQuietTurns = 3;

}  // namespace

void Flusher::add(const std::shared_ptr<Session>& session) {
    {
        MutexLock lock(mutex_);
        sessions_.push_back(session);
        if (sessions_.size() > 1) return;
        begin_ = Clock::now();
        seen_ = received_.load(std::memory_order_relaxed);
        quietTurns_ = 0;
    }
    post();
}

void Flusher::post() {
    boost::asio::post(context_, [self = shared_from_this()] { self->turn(); });
}

void Flusher::turn() {
    std::vector<std::weak_ptr<Session>> due;
    {
        MutexLock lock(mutex_);
        if (isDueLocked()) due.swap(sessions_);
    }
    if (due.empty()) return post();
    for (const auto& weak : due) {
        if (const auto session = weak.lock()) session->wakeListed();
    }
}

bool Flusher::isDueLocked() {
    const unsigned now = received_.load(std::memory_order_relaxed);
    quietTurns_ = now == seen_ ? quietTurns_ + 1 : 0;
    seen_ = now;
    return quietTurns_ >= enoughQuietTurns || Clock::now() - begin_ >= longestWait;
}

}  // namespace gateway::bayeux
