#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bayeux/BayeuxServer.h"
#include "connector/ThreadSafety.h"

namespace gateway::bayeux {

class Core;
class Session;

/// One WebSocket: its actions, and the sessions that deliver through it.
///
/// Threads: any, but for `receive`.  Locks: mutex_, a leaf; actions run without it.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(std::shared_ptr<Core> core, Peer peer, SocketActions actions);

    const Peer& peer() const { return peer_; }

    /// Handles one frame; closes behind the first that shows neither the token nor a session.  Threads: one
    /// call at a time.
    void receive(const std::string& text);
    std::size_t maxFrameBytes() const;
    /// All is received that has come.
    void endReadTurn() EXCLUDES(mutex_);
    /// A frame is being handled, or has been.
    void beginExchange() EXCLUDES(mutex_);
    void endExchange() EXCLUDES(mutex_);
    /// Its peer has shown who it is.
    void trust() { isTrusted_ = true; }
    bool isTrusted() const { return isTrusted_; }

    /// Sends an array of messages.
    void send(std::string array, bool isReply) const;
    /// Whether deliveries may be sent; if not, the sessions are woken when they may be again.
    bool hasRoom();
    bool isWritten() const { return actions_.unsentBytes() == 0; }
    /// There may be more room.
    void drained();

    /// Makes this the socket of the session. False when it is closed.
    bool bind(const std::shared_ptr<Session>& session) EXCLUDES(mutex_);
    void unbind(const Session& session) EXCLUDES(mutex_);
    bool hasSessions() EXCLUDES(mutex_);

    /// Closes the socket, once.
    void close(std::uint16_t code);
    /// The socket is closed: its sessions lose it.
    void closed() EXCLUDES(mutex_);
    bool isClosed() const { return isClosed_; }

private:
    std::vector<std::shared_ptr<Session>> bound() EXCLUDES(mutex_);
    bool leavesTurnLocked() REQUIRES(mutex_);

    // Fixed after construction.
    const std::shared_ptr<Core> core_;
    const Peer peer_;
    const SocketActions actions_;

    std::atomic<bool> isTrusted_;
    std::atomic<bool> isRoomWanted_{false};  // a session waits for it
    std::atomic<bool> isClosing_{false};
    std::atomic<bool> isClosed_{false};

    connector::Mutex mutex_;
    bool isReadEmpty_ GUARDED_BY(mutex_) = true;
    bool isInTurn_ GUARDED_BY(mutex_) = false;
    int exchanges_ GUARDED_BY(mutex_) = 0;
    std::map<const Session*, std::weak_ptr<Session>> sessions_ GUARDED_BY(mutex_);
};

}  // namespace gateway::bayeux
