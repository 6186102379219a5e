#pragma once

#include <string>

#include "bayeux/Request.h"
#include "standalone/ClientSession.h"

namespace gateway::bayeux {

/// Publishes for a client, where clients may. Returns the reply.
/// Blocks: while subscribers in the process run.
std::string publish(standalone::ClientSession& session, const Request& request);

}  // namespace gateway::bayeux
