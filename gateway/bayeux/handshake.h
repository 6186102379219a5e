#pragma once

#include <memory>
#include <string>

#include "bayeux/BayeuxServer.h"
#include "bayeux/Request.h"

namespace gateway::bayeux {

class Connection;
class Core;

/// Whether the server knows this way to connect.
bool isConnectionType(const std::string& name);

/// The reply to a handshake: a new session, which delivers through `connection` unless that is null, or why
/// there is none.  Threads: any.
std::string answerHandshake(const std::shared_ptr<Core>& core, const Request& request, Peer peer,
                            const std::shared_ptr<Connection>& connection);

}  // namespace gateway::bayeux
