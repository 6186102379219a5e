#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bayeux/BayeuxServer.h"
#include "bayeux/Request.h"

namespace gateway::bayeux {

class Connection;
class Core;
class Session;

/// One array of messages and the replies to them. Each message is handled on the strand of its session, one
/// after the other; then the replies go out together. A connect that is held replies later.
///
/// Threads: `start`, `trust`, `isTrusted` and `isAbandoned` any; the others on the strand of the session
/// whose message is handled or held.
class Exchange : public std::enable_shared_from_this<Exchange> {
public:
    virtual ~Exchange() = default;
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    static void start(const std::shared_ptr<Exchange>& exchange);

    virtual const Peer& peer() const = 0;
    /// The WebSocket; null for a POST.
    virtual std::shared_ptr<Connection> connection() const { return nullptr; }
    /// The peer has shown the token, or a session of its own.
    virtual void trust() = 0;
    /// Whether a connect may be held: over HTTP only when it is alone, and never beside messages of another
    /// session, because the exchange is on one strand at a time.
    virtual bool canHold() const = 0;
    /// Whether nobody waits for replies any more.
    virtual bool isAbandoned() const = 0;

    /// Adds messages, with commas between them.
    void add(std::string_view messages);
    /// Sends what was added.
    void flush();
    /// Ends a held connect because of a later one.
    virtual void supersede() {}

protected:
    Exchange(std::shared_ptr<Core> core, std::vector<Request> requests)
        : core_(std::move(core)), requests_(std::move(requests)) {}

    virtual void send(std::string array) = 0;

    const std::shared_ptr<Core> core_;
    const std::vector<Request> requests_;

private:
    void run();
    /// False when it goes on elsewhere.
    bool handle(const Request& request);

    std::size_t next_ = 0;
    std::string messages_;
};

/// The exchange of one POST.
class PostExchange : public Exchange {
public:
    using Done = std::function<void(HttpAnswer)>;

    PostExchange(std::shared_ptr<Core> core, std::vector<Request> requests, Peer peer, Done done)
        : Exchange(std::move(core), std::move(requests)),
          peer_(std::move(peer)),
          done_(std::move(done)),
          isTrusted_(peer_.isAuthenticated) {}

    const Peer& peer() const override { return peer_; }
    void trust() override { isTrusted_ = true; }
    bool isTrusted() const { return isTrusted_; }
    bool canHold() const override { return requests_.size() == 1; }
    bool isAbandoned() const override { return isAbandoned_; }
    void supersede() override { answer({408, "[]"}); }

    /// The answer is written, or cannot be any more.
    void end(bool isWritten);

private:
    void send(std::string array) override;
    void answer(HttpAnswer answer);

    const Peer peer_;
    Done done_;
    std::atomic<bool> isTrusted_;
    std::atomic<bool> isAbandoned_{false};
};

/// The exchange of one frame of a WebSocket.
class SocketExchange : public Exchange {
public:
    SocketExchange(std::shared_ptr<Core> core, std::vector<Request> requests,
                   std::shared_ptr<Connection> connection)
        : Exchange(std::move(core), std::move(requests)), connection_(std::move(connection)) {}

    const Peer& peer() const override;
    std::shared_ptr<Connection> connection() const override { return connection_; }
    void trust() override;
    bool canHold() const override;
    bool isAbandoned() const override;

private:
    void send(std::string array) override;

    const std::shared_ptr<Connection> connection_;
};

}  // namespace gateway::bayeux
