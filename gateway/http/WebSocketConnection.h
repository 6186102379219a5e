#pragma once

#include <memory>

#include "http/ConnectionContext.h"
#include "http/OpenConnections.h"
#include "http/requestHead.h"
#include "http/streams.h"

namespace gateway::http {

/// Answers a request for a WebSocket, and carries its frames between the client and the speaker for its path
/// until it ends. `access` is for the access log: what is known of the request.
void serveWebSocket(PlainStream stream, const ReceivedRequest& upgrade, const HttpRequest& head,
                    const std::shared_ptr<OpenConnections::Place>& place, const ConnectionContext& context,
                    AccessEntry access);
void serveWebSocket(TlsStream stream, const ReceivedRequest& upgrade, const HttpRequest& head,
                    const std::shared_ptr<OpenConnections::Place>& place, const ConnectionContext& context,
                    AccessEntry access);

}  // namespace gateway::http
