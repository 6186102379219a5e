#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <string_view>

#include "access/AccessPolicy.h"
#include "bayeux/BayeuxServer.h"
#include "dispatch/RequestDispatcher.h"
#include "http/Request.h"
#include "http/StaticFiles.h"
#include "metrics/RequestMetrics.h"
#include "metrics/metricsPage.h"

namespace gateway::http {

/// Decides what is answered to a request; it knows nothing of connections.
///
/// Threads: every operation from any thread.  Owns: borrows its parts.
class Endpoints {
public:
    using Done = std::function<void(Reply)>;
    using BodyPlaces = std::counting_semaphore<>;
    struct LeavePlace {
        void operator()(BodyPlaces* places) const { places->release(); }
    };
    /// A large body of a stranger that is being read.
    using UnprovenBody = std::unique_ptr<BodyPlaces, LeavePlace>;

    struct Parts {
        const access::AccessPolicy& access;
        const StaticFiles& files;
        dispatch::RequestDispatcher& dispatcher;
        bayeux::BayeuxServer& bayeux;
        metrics::RequestMetrics& metrics;
        std::ptrdiff_t unprovenBodies;
        std::function<bool()> isReady;
        std::function<metrics::Snapshot()> snapshot;
    };
    explicit Endpoints(Parts parts);

    /// Judges a request by its head, before its body is read: a reply refuses it.
    std::optional<Reply> judge(const Request& head);

    /// The reply to a request that there is no place for, since too many clients have shown the token.
    Reply crowded(const Request& head);
    /// Whether a request that `judge` let through needs no such place: who looks how the server does, or
    /// interrupts what it does, has to get in.
    static bool isForEveryPlace(const Request& head);

    /// Whether the sender of a request that `judge` let through has not shown the token.
    bool isStranger(const Request& head) const { return !parts_.access.isAuthenticated(head); }
    /// Whether a session is seen in the beginning of a stranger's body.
    bool showsSession(std::string_view body) const { return parts_.bayeux.showsSession(body); }
    /// Lets a stranger's large body be read in which no session is seen yet; null when too many are.
    UnprovenBody takeUnprovenBody() {
        return UnprovenBody(unprovenBodies_.try_acquire() ? &unprovenBodies_ : nullptr);
    }

    /// Answers a request that `judge` let through. `done` is called once, before this returns or later, on
    /// any thread. When there is a result, the answer may take long and is of no use to a client that has
    /// gone; destroying it says so, and then `done` need not be called.
    std::unique_ptr<bayeux::PendingPost> answer(const Request& request, Done done);

    /// Whether a request that `judge` let through asks for a WebSocket.
    static bool isWebSocket(const Request& head);
    /// Takes over a WebSocket whose request `judge` let through.
    std::unique_ptr<bayeux::Socket> open(const Request& upgrade, bayeux::SocketActions actions);

    /// The reply to what is no proper request.
    Reply malformed(int status, std::string_view text);

    /// From now on requests are answered with 503.
    void refuseAll() { isStopping_ = true; }

private:
    std::optional<Reply> refusal(const Request& head) const;
    static std::optional<Reply> refusalOfBody(const Request& head);
    static Reply unauthenticated(metrics::Endpoint endpoint);
    static Reply preflight();
    Reply page(metrics::Endpoint endpoint, const Request& request) const;
    Reply console(const Request& request) const;
    bayeux::Peer peerOf(const Request& request) const;
    void addCommonHeaders(Reply& reply, const std::string& origin) const;

    const Parts parts_;
    BodyPlaces unprovenBodies_;
    std::atomic<bool> isStopping_{false};
};

}  // namespace gateway::http
