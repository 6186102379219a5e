#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "bayeux/ClientMessage.h"
#include "connector/common/ClientRequests.h"
#include "messages/ClientSession.h"

namespace gateway::ports {
class InterpreterPort;
}

namespace gateway::bayeux {

/// The streaming requests that one client publishes on "/eval/request". Each has a name, which stands in
/// whatever comes of it: the client's own, or one that is made here and told in the reply.
///
/// Threads: on the strand of the session.
class Evaluations {
public:
    /// `limit`: how many may be under way.
    Evaluations(ports::InterpreterPort& port, std::shared_ptr<messages::ClientSession> session,
                std::size_t limit)
        : port_(port), session_(std::move(session)), limit_(limit) {}

    /// Publishes a request. `replied` is called once with the reply, on any thread, perhaps before this
    /// returns.
    void start(const ClientMessage& message, const std::function<void(std::string)>& replied);

    /// Those that have not ended.
    const std::shared_ptr<connector::common::ClientRequests>& underWay() const { return underWay_; }

private:
    std::shared_ptr<connector::common::ContextState> contextOf(const ClientMessage& message);

    ports::InterpreterPort& port_;
    const std::shared_ptr<messages::ClientSession> session_;
    const std::size_t limit_;
    const std::shared_ptr<connector::common::ClientRequests> underWay_ =
        std::make_shared<connector::common::ClientRequests>();
};

}  // namespace gateway::bayeux
