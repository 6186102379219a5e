#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace boost::asio {
class io_context;
}
namespace messages {
class LocalMessageService;
}
namespace dispatch {
class RequestDispatcher;
}

namespace gateway::bayeux {

/// Who sends messages.
struct Peer {
    std::string address;           ///< of the network, without the port; for limits
    bool isAuthenticated = false;  ///< the connection itself has shown the token: by header, cookie or query
    std::string clientType = {};   ///< header Connector-Client-Type; else a handshake may say it
    std::string origin = {};       ///< of the page that sends, when a browser says so
};

struct ServerOptions {
    /// Whether the token in a handshake's `ext` is the right one. Compares in constant time. Without it only
    /// authenticated peers get in.
    std::function<bool(const std::string& token)> isToken = {};

    std::chrono::milliseconds timeout = std::chrono::seconds(25);      ///< how long a connect is held
    std::chrono::milliseconds maxInterval = std::chrono::seconds(20);  ///< life without a connect
    std::size_t depth = 64;                                            ///< of JSON
    std::size_t messagesPerArray = 1000;
    /// In one body or frame, beside the data of its messages, which stays text.
    std::size_t values = 20'000;
    /// The same where the sender has shown neither the token nor the id of a session.
    std::size_t strangerValues = 1000;
    std::size_t frameBytes = std::size_t{16} << 20;  ///< of a WebSocket
    /// Of a body or a frame whose sender has shown neither the token nor the id of a session: the values in
    /// it take much more room than their text.
    std::size_t strangerBytes = std::size_t{64} << 10;
    std::size_t subscriptionsPerSession = 1000;
    std::size_t sessionsPerPeer = 1000;
    std::size_t handshakesPerSecond = 20;     ///< of one peer
    std::size_t connectsPerSecond = 50;       ///< of one session; more are answered later
    std::size_t callsPerSession = 64;         ///< under way
    std::size_t evaluationsPerSession = 256;  ///< that are streamed and have not ended
    /// What may wait for a session; beside it, there is one reply's worth on the way.
    std::size_t queueBytes = std::size_t{32} << 20;
    /// Deliveries in one reply or frame, and what may wait in a socket. One delivery may be larger.
    std::size_t replyBytes = std::size_t{1} << 20;

    std::chrono::milliseconds sweepInterval = std::chrono::milliseconds(100);
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
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
    /// The network has taken the whole answer.
    virtual void written() = 0;
};

/// One WebSocket, from the server's side. Destroying it says that it is closed; its session goes on.
///
/// Threads: `receive` one call at a time; the others from any.
class Socket {
public:
    virtual ~Socket() = default;
    /// Takes one text frame.
    virtual void receive(std::string text) = 0;
    /// Says that all is received that has come: what it has published is sent now.
    virtual void endReadTurn() = 0;
    /// Says that `unsentBytes` has become smaller. Cheap, so it may be called after every write.
    virtual void drained() = 0;
    /// How large the next frame may be; a larger one closes the socket with 1009.
    virtual std::size_t maxFrameBytes() const = 0;
    /// Whether its peer has shown the token or a session.
    virtual bool isTrusted() const = 0;
};

/// What a WebSocket does for the server.
///
/// Threads: called on threads of the io_context and on those that call the server, from several at a time
/// when a client has several sessions on one socket, and perhaps shortly after the Socket is destroyed.
/// `send` and `close` do not call the server before they return.
struct SocketActions {
    /// Sends one text frame. Frames go out in the order of the calls; `isReply` ones may overtake deliveries
    /// that wait behind a slow client.
    std::function<void(std::shared_ptr<const std::string> frame, bool isReply)> send;
    /// How many bytes given to `send` are not written yet: counted before `send` returns, so that the server
    /// stops in time.
    std::function<std::size_t()> unsentBytes;
    /// Closes with a WebSocket close code once what was given to `send` is written.
    std::function<void(std::uint16_t code)> close;
};

/// The Bayeux protocol over the message service: handshakes, connects, subscriptions, publishes and remote
/// calls, with the acknowledge extension; it knows nothing of sockets and of HTTP.
///
/// Subscribers and watchers in the process run on threads of the io_context; one that blocks holds up the
/// session that it is called for, and a thread.
///
/// Threads: every operation from any thread. All work on one session runs on one strand of the io_context,
/// one piece after the other, so that what a session sends keeps its order and no lock is held while foreign
/// code runs. Owns: borrows `context`, `messages` and `dispatcher`. It is destroyed when no thread runs the
/// context any more, and the context when nobody publishes and the dispatcher is stopped.
class BayeuxServer {
public:
    BayeuxServer(boost::asio::io_context& context, messages::LocalMessageService& messages,
                 dispatch::RequestDispatcher& dispatcher, ServerOptions options);
    /// Stops.
    ~BayeuxServer();
    BayeuxServer(const BayeuxServer&) = delete;
    BayeuxServer& operator=(const BayeuxServer&) = delete;

    /// Takes the body of one POST. `done` is called once, perhaps before the operation returns, unless the
    /// result is destroyed first.
    std::unique_ptr<PendingPost> post(const std::string& body, const Peer& peer,
                                      std::function<void(HttpAnswer)> done);

    /// Whether the id of a session is seen in a body, or in its beginning.
    bool showsSession(std::string_view body) const;

    /// Takes over the messages of one WebSocket.
    std::unique_ptr<Socket> open(const Peer& peer, SocketActions actions);

    /// Does what is due by the clock of the options and, once a second, `sweep` of the message service. A
    /// timer calls it every `sweepInterval`.
    void sweep();

    /// How many sessions there are.
    std::size_t sessions() const;

    /// Ends every session: held connects are answered, sockets closed with 1001. That needs the context to
    /// run on for a moment.
    void stop();

private:
    class Impl;
    const std::shared_ptr<Impl> impl_;
};

}  // namespace gateway::bayeux
