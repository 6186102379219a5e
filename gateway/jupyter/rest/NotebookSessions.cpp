#include "jupyter/rest/NotebookSessions.h"

#include <algorithm>

namespace gateway::jupyter {

void NotebookSessions::put(Session session) {
    const auto found = std::ranges::find(sessions_, session.id, &Session::id);
    if (found != sessions_.end()) {
        *found = std::move(session);
        return;
    }
    if (sessions_.size() >= most) sessions_.pop_front();
    sessions_.push_back(std::move(session));
}

}  // namespace gateway::jupyter
