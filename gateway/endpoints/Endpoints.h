#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <semaphore>
#include <string_view>

#include "HttpReply.h"
#include "HttpRequest.h"
#include "endpoints/Route.h"
#include "endpoints/Services.h"

namespace gateway::endpoints {

/// Decides what is answered to a request; it knows nothing of connections.
///
/// Threads: every operation from any thread.
class Endpoints {
public:
    using Semaphore = std::counting_semaphore<>;
    struct Release {
        void operator()(Semaphore* semaphore) const { semaphore->release(); }
    };
    /// While it lives, a large body may be read whose sender is not authenticated.
    using LargeBodyPermit = std::unique_ptr<Semaphore, Release>;

    /// `unauthenticatedBodies`: how many such permits there are.
    Endpoints(Services services, std::ptrdiff_t unauthenticatedBodies);

    /// Checks a request by its head, before its body is read: a reply refuses it.
    std::optional<HttpReply> check(const HttpRequest& head);

    /// The reply to a request that there is no place for, since too many clients are authenticated.
    HttpReply tooManyConnections(const HttpRequest& head);
    /// Whether a request that `check` allowed needs no such place.
    static bool isAlwaysServed(const HttpRequest& head);

    /// Whether the sender of a request that `check` allowed has shown the token.
    bool isAuthenticated(const HttpRequest& head) const { return services_.access.isAuthenticated(head); }
    /// Whether the beginning of a body shows a session.
    bool showsSession(std::string_view body) const { return services_.desk.bayeux().showsSession(body); }
    /// Null when no permit is left.
    LargeBodyPermit permitLargeBody() {
        return LargeBodyPermit(largeBodies_.try_acquire() ? &largeBodies_ : nullptr);
    }

    /// Answers a request that `check` allowed, as its handler does.
    std::unique_ptr<bayeux::PendingPost> answer(const HttpRequest& request, Done done);

    /// Whether a request that `check` allowed asks for a WebSocket.
    static bool isWebSocket(const HttpRequest& head);
    /// Who sends a request.
    bayeux::Peer peerOf(const HttpRequest& head) const { return endpoints::peerOf(services_, head); }
    /// Takes over a WebSocket whose request `check` allowed, and which is open.
    void open(const HttpRequest& upgrade, const std::shared_ptr<bayeux::ClientSocket>& socket);
    /// Takes the frames of WebSockets.
    bayeux::BayeuxServer& bayeux() const { return services_.desk.bayeux(); }

    /// The reply to what is no valid request.
    HttpReply malformed(int status, std::string_view text);

    /// From now on requests are answered with 503.
    void refuseAll() { isStopping_ = true; }

private:
    std::optional<HttpReply> refusalOf(const HttpRequest& head, const Route& route) const;
    void addCommonHeaders(HttpReply& reply, const std::string& origin) const;

    const Services services_;
    Semaphore largeBodies_;
    std::atomic<bool> isStopping_{false};
};

}  // namespace gateway::endpoints
