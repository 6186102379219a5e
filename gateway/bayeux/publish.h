#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "bayeux/Request.h"
#include "connector/common/ClientRequests.h"
#include "messages/ClientSession.h"

namespace gateway::bayeux {

/// Publishes for a client, where clients may. Returns the reply. A request for a streaming evaluation is
/// refused when there are `mostEvaluations` in `evaluations`, and becomes one of them otherwise. Blocks:
/// while subscribers in the process run.
std::string publish(messages::ClientSession& session, const Request& request,
                    const std::shared_ptr<connector::common::ClientRequests>& evaluations,
                    std::size_t mostEvaluations);

}  // namespace gateway::bayeux
