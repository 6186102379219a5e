#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace jupyter {

/// Whom a ServerSocket tells what becomes of it.
///
/// Threads: called on a thread of the socket; quick, and throws nothing.
class ServerSocketListener {
public:
    virtual ~ServerSocketListener() = default;

    /// It is connected, for the first time or again.
    virtual void opened() = 0;
    /// A binary message. The next one is read after `ServerSocket::readOn`.
    virtual void received(std::string frame) = 0;
    /// The connection is lost, and tried again. What was sent with the numbers up to `confirmed` has arrived,
    /// what was sent with those up to `written` may have; what is left waits for `goOn`.
    virtual void lost(std::string reason, std::uint64_t confirmed, std::uint64_t written) = 0;
    /// The server refuses, or was tried again long enough. Nothing comes after that.
    virtual void ended(std::string reason) = 0;
};

/// The WebSocket of a kernel of a server, which is connected again when the connection is lost: for a time
/// that is bounded.
///
///     made -- start --> connecting <--> open
///                           '---------> ended
///
/// Threads: every operation from any thread.  Blocks: the destructor alone, until its thread has ended.
class ServerSocket {
public:
    virtual ~ServerSocket() = default;

    /// Once. `listener` must outlive the socket, and the socket its start.
    virtual void start(ServerSocketListener& listener) = 0;
    /// Sends a binary message. Numbers rise from 1.  Returns: false, and sends nothing, when too much waits.
    virtual bool send(std::uint64_t number, std::string frame) = 0;
    virtual void readOn() = 0;
    /// After `lost`: what waits is sent when there is a connection, but for what has these numbers.
    virtual void goOn(std::set<std::uint64_t> dropped) = 0;
};

}  // namespace jupyter
