#pragma once

#include <optional>
#include <string>
#include <vector>

#include <zmq.hpp>

#include "jupyter/ConnectionFile.h"
#include "jupyter/Message.h"
#include "jupyter/wire/ZmqFrames.h"
#include "zmq/IopubQueue.h"

namespace jupyter {

/// The five sockets of a kernel. No operation but `poll` and `close` waits.
///
/// Threads: one at a time.
class Sockets : public IopubSocket {
public:
    /// Throws: std::runtime_error, which names the address, when one cannot be bound; std::invalid_argument.
    explicit Sockets(ConnectionFile file);

    /// With the ports that are bound.
    const ConnectionFile& file() const { return file_; }

    /// Waits until there is something to receive, or `descriptor` is readable, for `limit` at most.
    void poll(int descriptor, std::chrono::milliseconds limit);
    /// Echoes the heartbeats that have come.
    void echo();
    /// A message of a client, if one has come; what is none is dropped.
    std::optional<Message> receive(Channel channel);
    /// Whether clients have subscribed to iopub since this was asked last.
    bool takeSubscriptions();

    /// On any channel but iopub; dropped where its client is gone, or has no room.
    void send(const Message& message);
    bool trySend(const Message& message) override;
    void setLossless(bool isLossless) override;

    /// Waits until what was sent is out, for the linger time at most.
    void close();

private:
    zmq::socket_t bind(zmq::socket_type type, int& port);
    zmq::socket_t& socketOf(Channel channel);
    bool write(zmq::socket_t& socket, const Message& message);

    ConnectionFile file_;
    wire::ZmqFrames frames_;
    zmq::context_t context_{1};
    zmq::socket_t heartbeat_;
    zmq::socket_t shell_;
    zmq::socket_t control_;
    zmq::socket_t stdin_;
    zmq::socket_t iopub_;
};

}  // namespace jupyter
