#pragma once

#include <memory>
#include <string>

namespace gateway::bayeux {

class ClientMessage;
class Exchange;
class SessionTable;

/// The reply to a handshake: a new session, which delivers through the WebSocket of the exchange if it has
/// one, or why there is none.  Threads: any.
std::string answerHandshake(SessionTable& sessions, const ClientMessage& message, Exchange& exchange);

}  // namespace gateway::bayeux
