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
#include "sockets/Speaker.h"

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

    /// Finds what the path of a request means, and what its sender may do, and checks it by its head, before
    /// its body is read: a reply refuses it.
    std::optional<HttpReply> check(HttpRequest& head);

    /// The reply to a request that there is no place for, since too many clients are authenticated.
    HttpReply tooManyConnections(const HttpRequest& head);
    /// Whether a request that `check` allowed needs no such place.
    static bool isAlwaysServed(const HttpRequest& head);

    /// Null when no permit is left.
    LargeBodyPermit permitLargeBody() {
        return LargeBodyPermit(largeBodies_.try_acquire() ? &largeBodies_ : nullptr);
    }

    /// Answers a request that `check` allowed, as its handler does.
    std::unique_ptr<bayeux::PendingPost> answer(const HttpRequest& request, Done done);

    /// Whether a request that `check` allowed asks for a WebSocket.
    static bool isWebSocket(const HttpRequest& head);
    /// Who speaks over a WebSocket whose request `check` allowed.
    static std::shared_ptr<sockets::Speaker> speakerFor(const HttpRequest& upgrade);
    /// Counts one that is open.
    void noteOpened(const HttpRequest& upgrade) { services_.metrics.count(upgrade.route->metric, 101); }
    /// Counts one whose handshake is not valid.
    void noteRefused(const HttpRequest& upgrade, int status) {
        services_.metrics.count(upgrade.route->metric, status);
    }

    /// The reply to what is no valid request.
    HttpReply malformed(int status, std::string_view text);

    /// From now on requests are answered with 503.
    void refuseAll() { isStopping_ = true; }

private:
    void resolve(HttpRequest& head) const;
    void resolveKernel(HttpRequest& head) const;
    std::optional<HttpReply> refusalOf(const HttpRequest& head) const;
    std::optional<HttpReply> refusalBySender(const HttpRequest& head) const;
    bool isOpen(const HttpRequest& head) const;
    void addCommonHeaders(HttpReply& reply, const std::string& origin,
                          const std::shared_ptr<interpreters::Desk>& desk) const;

    const Services services_;
    Semaphore largeBodies_;
    std::atomic<bool> isStopping_{false};
};

}  // namespace gateway::endpoints
