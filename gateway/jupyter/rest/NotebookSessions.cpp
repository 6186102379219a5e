#include "jupyter/rest/NotebookSessions.h"

#include <algorithm>
#include <utility>

namespace gateway::jupyter {

using connector::MutexLock;

NotebookSessions::Sessions NotebookSessions::all() const {
    const MutexLock lock(mutex_);
    return sessions_;
}

void NotebookSessions::put(Session session) {
    const MutexLock lock(mutex_);
    const auto found = std::ranges::find(sessions_, session.id, &Session::id);
    if (found != sessions_.end()) {
        *found = std::move(session);
        return;
    }
    if (sessions_.size() >= most) sessions_.pop_front();
    sessions_.push_back(std::move(session));
}

void NotebookSessions::erase(std::string_view id) {
    const MutexLock lock(mutex_);
    std::erase_if(sessions_, [&](const Session& session) { return session.id == id; });
}

}  // namespace gateway::jupyter
