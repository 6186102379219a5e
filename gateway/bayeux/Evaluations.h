#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "bayeux/ClientMessage.h"
#include "connector/common/ClientRequests.h"
#include "connector/common/RequestNames.h"
#include "messages/ClientSession.h"

namespace gateway::bayeux {

/// The streaming requests that one client publishes on "/eval/request". Each has a name, which stands in
/// whatever comes of it: the client's own, or one that is made here and told in the reply.
///
/// Threads: on the strand of the session.
class Evaluations {
public:
    /// `limit`: how many may be under way. `names`: of the requests of all clients.
    Evaluations(std::shared_ptr<messages::ClientSession> session,
                std::shared_ptr<connector::common::RequestNames> names, std::size_t limit)
        : session_(std::move(session)), names_(std::move(names)), limit_(limit) {}

    /// Publishes a request. Returns the reply.
    std::string start(const ClientMessage& message);

    /// Those that have not ended.
    const std::shared_ptr<connector::common::ClientRequests>& underWay() const { return underWay_; }

private:
    std::shared_ptr<connector::common::ContextState> contextOf(const ClientMessage& message);

    const std::shared_ptr<messages::ClientSession> session_;
    const std::shared_ptr<connector::common::RequestNames> names_;
    const std::size_t limit_;
    const std::shared_ptr<connector::common::ClientRequests> underWay_ =
        std::make_shared<connector::common::ClientRequests>();
};

}  // namespace gateway::bayeux
