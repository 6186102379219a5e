#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "access/Grant.h"
#include "jupyter/StrandExecutor.h"

namespace gateway::jupyter {

/// That a document of a front end is worked on with a kernel.
struct Session {
    std::string id;
    std::string path;
    std::string name;
    std::string type;
    std::string kernel;                          ///< its id
    std::shared_ptr<const access::Grant> maker;  ///< of the token that it was begun with
};

/// The sessions of front ends, in memory. Of more than `most`, the oldest are forgotten: their kernels run
/// on.
///
/// What is asked of them is done in turns, one after the other: of two requests for one document, the second
/// finds what the first has made.
///
/// Threads: `inTurn` and `begin` any; the rest within a turn.
class NotebookSessions {
public:
    static constexpr std::size_t most = 1000;
    using Sessions = std::deque<Session>;

    explicit NotebookSessions(boost::asio::io_context& context) : turns_(context) {}

    /// Has it done later.
    void inTurn(std::function<void()> task) { turns_.post(std::move(task)); }

    /// The oldest first.
    const Sessions& all() const { return sessions_; }
    /// Adds it, or puts it in the place of the one with its id.
    void put(Session session);
    /// Forgets those that `isOver`.
    void eraseIf(const std::function<bool(const Session&)>& isOver) { std::erase_if(sessions_, isOver); }

    std::chrono::system_clock::time_point begin() const { return begin_; }

private:
    const std::chrono::system_clock::time_point begin_ = std::chrono::system_clock::now();
    StrandExecutor turns_;
    Sessions sessions_;
};

}  // namespace gateway::jupyter
