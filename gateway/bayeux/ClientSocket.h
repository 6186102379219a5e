#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "bayeux/MessageArray.h"
#include "bayeux/ReadTurns.h"
#include "bayeux/transport.h"
#include "connector/ThreadSafety.h"

namespace gateway::bayeux {

class ClientSocket;
struct ServerCore;

/// Who delivers through a socket: a session.  Threads: any.
class SocketUser : public Wakeable {
public:
    virtual void socketClosed(const std::shared_ptr<ClientSocket>& socket) = 0;
    /// The network has taken something from its socket.
    virtual void noteReading() = 0;
};

/// One WebSocket of a client, and who delivers through it. A transport derives from it, hands it to
/// BayeuxServer::open once it is open, and what it receives to BayeuxServer::receive.
///
///     new -- BayeuxServer::open --> open -- close --> closing -- closed --> closed
///                                     '------------- closed ---------------^
///
/// Threads: any, but for what says otherwise.  Locks: mutex_, a leaf; the transport and sessions are called
/// without it.
class ClientSocket : public std::enable_shared_from_this<ClientSocket> {
public:
    using Time = std::chrono::steady_clock::time_point;

    virtual ~ClientSocket() = default;
    ClientSocket(const ClientSocket&) = delete;
    ClientSocket& operator=(const ClientSocket&) = delete;

    // For the transport.

    /// Says that the network has taken a part of a frame.
    void progressed() CONNECTOR_EXCLUDES(mutex_);
    /// Says that `unsentBytes` has become smaller. Cheap, so it may be called after every write.
    void drained() CONNECTOR_EXCLUDES(mutex_);
    /// Says that all is received that has come: what it has published is sent now.
    void endReadTurn() CONNECTOR_EXCLUDES(mutex_);
    /// Says that it is closed. Its sessions go on.
    void closed() CONNECTOR_EXCLUDES(mutex_);
    /// How large the next frame may be; a larger one closes the socket with 1009.
    std::size_t maxFrameBytes() const;
    /// Whether its peer has shown the token or a session.
    bool isTrusted() const { return isTrusted_; }

    // For the server.

    /// Before all else.
    void open(std::shared_ptr<ServerCore> core) { core_ = std::move(core); }
    const Peer& peer() const { return peer_; }
    void trust() { isTrusted_ = true; }

    /// A frame is being handled, or has been.
    void beginExchange() CONNECTOR_EXCLUDES(mutex_);
    void endExchange() CONNECTOR_EXCLUDES(mutex_);

    void send(const MessageArray& array, bool isReply);
    /// Whether deliveries may be sent; if not, the sessions are woken when they may be again.
    bool hasRoom();
    bool isWritten() const { return unsentBytes() == 0; }

    /// Makes this the socket of the session. False when it is closed.
    bool bind(const std::shared_ptr<SocketUser>& session) CONNECTOR_EXCLUDES(mutex_);
    void unbind(const SocketUser& session) CONNECTOR_EXCLUDES(mutex_);

    /// Closes with a WebSocket close code, once what was sent is written.
    void close(std::uint16_t code);
    /// Has it closed at `when`, unless it has a session then: its client may begin a new one on it.
    void closeLater(Time when) { closeTime_ = when; }
    /// Closes it if its time has come.
    void sweep(Time now) CONNECTOR_EXCLUDES(mutex_);
    bool isClosing() const { return isClosing_; }
    bool isClosed() const { return isClosed_; }

protected:
    explicit ClientSocket(Peer peer) : peer_(std::move(peer)), isTrusted_(peer_.isAuthenticated) {}

private:
    // What a transport does, from several threads at a time when a client has several sessions on one socket,
    // and perhaps shortly after `closed`. These do not call the server before they return.

    /// Sends one text frame. Frames go out in the order of the calls; `isReply` ones may overtake deliveries
    /// that wait for a slow client.
    virtual void sendFrame(const MessageArray& array, bool isReply) = 0;
    /// How many bytes given to `sendFrame` are not written yet: counted before it returns, so that the server
    /// stops in time.
    virtual std::size_t unsentBytes() const = 0;
    /// Closes once what was given to `sendFrame` is written. Called once.
    virtual void closeFrame(std::uint16_t code) = 0;

    std::vector<std::shared_ptr<SocketUser>> users() CONNECTOR_EXCLUDES(mutex_);
    bool endsTurnLocked() CONNECTOR_REQUIRES(mutex_);

    std::shared_ptr<ServerCore> core_;  // fixed once open
    const Peer peer_;

    std::atomic<bool> isTrusted_;
    std::atomic<bool> isRoomWanted_{false};  // a session waits for it
    std::atomic<bool> isClosing_{false};
    std::atomic<bool> isClosed_{false};
    std::atomic<Time> closeTime_{Time::max()};

    connector::Mutex mutex_;
    bool isAllReceived_ CONNECTOR_GUARDED_BY(mutex_) = true;
    int exchanges_ CONNECTOR_GUARDED_BY(mutex_) = 0;  // under way
    bool isInTurn_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::map<const SocketUser*, std::weak_ptr<SocketUser>> users_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway::bayeux
