#pragma once

/// What the Bayeux server and the transports that carry its messages tell each other. The one for a
/// WebSocket is ClientSocket.

#include <memory>
#include <string>

namespace gateway::access {
struct Grant;
}

namespace gateway::bayeux {

/// Who sends messages.
struct Peer {
    std::string address;           ///< of the network, without the port; for limits
    bool isAuthenticated = false;  ///< the connection itself has shown the token: by header, cookie or query
    std::string clientType = {};   ///< header Connector-Client-Type; else a handshake may say it
    std::string origin = {};       ///< of the page that sends, when a browser says so
    std::shared_ptr<const access::Grant> grant = {};  ///< of the token that it has shown
};

/// The answer to one HTTP request: 200 with a body of Bayeux messages, 408 for a connect that a later one
/// has taken the place of, or 400, 413 or 503 with `{"error": "..."}`.
struct HttpAnswer {
    int status = 200;
    std::string body;  ///< in ASCII
};

/// A request that may be answered later. It is kept until the answer is written: the time in which a session
/// lives without a connect begins when it is destroyed. Unless `written` was called before, that says that
/// the client has gone: a held connect is released, and the deliveries for it are kept for the next one. The
/// answer may be on its way on another thread then.
class PendingPost {
public:
    virtual ~PendingPost() = default;
    /// Whether its sender has shown the token or a session.
    virtual bool isTrusted() const = 0;
    /// The network has taken a part of the answer.
    virtual void progressed() = 0;
    /// The network has taken the whole answer.
    virtual void written() = 0;
};

}  // namespace gateway::bayeux
