#pragma once

#include <memory>
#include <string>

#include "bayeux/Request.h"

namespace gateway::bayeux {

class Core;
class Exchange;

/// Whether the server knows this way to connect.
bool isConnectionType(const std::string& name);

/// The reply to a handshake: a new session, which delivers through the WebSocket of the exchange if it has
/// one, or why there is none.  Threads: any.
std::string answerHandshake(const std::shared_ptr<Core>& core, const Request& request, Exchange& exchange);

}  // namespace gateway::bayeux
