#include "bayeux/ReadTurns.h"

#include "bayeux/Session.h"

namespace gateway::bayeux {

using connector::MutexLock;

void ReadTurns::begin() {
    MutexLock lock(mutex_);
    ++turns_;
}

void ReadTurns::end() {
    std::vector<std::weak_ptr<Session>> woken;
    {
        MutexLock lock(mutex_);
        --turns_;
        woken.swap(waiting_);
    }
    for (const auto& weak : woken) {
        if (const auto session = weak.lock()) session->wake();
    }
}

void ReadTurns::wake(const std::shared_ptr<Session>& session) {
    {
        MutexLock lock(mutex_);
        if (turns_ > 0) return waiting_.push_back(session);
    }
    session->wake();
}

}  // namespace gateway::bayeux
