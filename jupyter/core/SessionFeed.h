#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "jupyter/Executor.h"
#include "jupyter/SessionInterpreter.h"
#include "messages/ClientSession.h"
#include "messages/HandlerGate.h"

namespace jupyter {

/// Takes what comes for a session to the executor, one batch a turn: a publisher that finds the queue empty
/// posts one task, whatever else is published until it runs.
///
/// When the service closes the session, whose client has not taken what must not be lost, another one takes
/// its place, and all that is under way is answered with 503: nothing more is known of it.
///
/// Threads: on the executor, except where it is said.  Owns: borrows the executor, until `stop`.
class SessionInterpreter::Feed : public std::enable_shared_from_this<Feed> {
public:
    using SessionPtr = std::shared_ptr<messages::ClientSession>;

    Feed(std::function<SessionPtr()> open, Executor& executor)
        : open_(std::move(open)), session_(open_()), executor_(executor) {}

    void listen(std::function<void(const InterpreterEvent&)> received, std::function<bool()> hasRoom);
    /// Delivers what there is, as far as there is room. Clients read.
    void resume();
    const SessionPtr& session() const { return session_; }
    /// The number under which an answer comes in its turn among the events.
    std::uint64_t await(Answered answered);
    /// Until the completion of the request is delivered, or it is refused.
    void await(const std::string& request, Refused refused);
    /// Has that called.  Threads: any.
    void refuse(const std::string& request, int status, std::string reason);

    /// Has the task run on the executor, unless stopped.  Threads: any.
    void post(std::function<void()> task);
    /// Threads: any.
    void queueAnswer(messages::ClientSession& session, std::uint64_t number, int status,
                     const std::string& text);

    /// Blocks: while another thread posts.
    void stop();

private:
    void subscribe();
    void replaceSession();
    void wake();
    void drain();
    void deliver(const messages::MessageFrame& frame);
    void deliverAnswer(std::string_view data);

    const std::function<SessionPtr()> open_;
    SessionPtr session_;
    Executor& executor_;
    messages::HandlerGate gate_;  // of the ways to the executor
    std::atomic<bool> isScheduled_{false};
    bool isDraining_ = false;
    std::function<void(const InterpreterEvent&)> received_;
    std::function<bool()> hasRoom_;
    std::map<std::uint64_t, Answered> awaited_;
    std::map<std::string, Refused> streams_;  // that are under way, by their requests
    std::uint64_t lastNumber_ = 0;
};

}  // namespace jupyter
