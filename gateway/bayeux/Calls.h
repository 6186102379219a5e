#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "bayeux/ClientMessage.h"
#include "connector/common/ClientRequests.h"
#include "messages/ClientSession.h"

namespace gateway::ports {
class InterpreterPort;
}

namespace gateway::bayeux {

/// The remote calls of one session. A call is acknowledged at once and answered later, by a message in the
/// session's queue, after what was published for it before. An interrupt withdraws the streaming requests
/// of the session that wait.
///
/// Threads: one at a time; answers come from threads of the port, also when this is gone.
class Calls {
public:
    using Evaluations = std::shared_ptr<connector::common::ClientRequests>;

    Calls(ports::InterpreterPort& port, std::shared_ptr<messages::ClientSession> session,
          Evaluations evaluations, std::size_t limit)
        : port_(port), session_(std::move(session)), evaluations_(std::move(evaluations)), limit_(limit) {}

    /// Starts the call that a message on "/service/<type name>" asks for. Returns the acknowledgement, which
    /// is a failed one when the call is refused.
    std::string start(const ClientMessage& message);

private:
    class Call;

    ports::InterpreterPort& port_;
    const std::shared_ptr<messages::ClientSession> session_;
    const Evaluations evaluations_;
    const std::size_t limit_;
    const std::shared_ptr<std::atomic<std::size_t>> underWay_ = std::make_shared<std::atomic<std::size_t>>(0);
};

}  // namespace gateway::bayeux
