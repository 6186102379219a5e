#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bayeux/BayeuxServer.h"
#include "bayeux/ClientSocket.h"
#include "interpreters/Desk.h"
#include "sockets/Speaker.h"

namespace gateway::endpoints {

/// Carries frames between a WebSocket and the Bayeux server of an interpreter.
///
/// Threads: as ClientSocket.
class BayeuxSpeaker : public bayeux::ClientSocket, public sockets::Speaker {
public:
    BayeuxSpeaker(bayeux::Peer peer, std::shared_ptr<interpreters::Desk> desk)
        : ClientSocket(std::move(peer)), desk_(std::move(desk)) {}

    // Whatever the client offers first is taken: without one, browsers would drop the connection.
    std::string chosen(const std::vector<std::string_view>& offered) override {
        return offered.empty() ? "" : std::string(offered.front());
    }
    void opened(const std::shared_ptr<sockets::FrameSocket>& socket) override {
        socket_ = socket;
        desk_->bayeux().open(self());
    }
    void received(std::string data, bool isText) override {
        constexpr std::uint16_t unknownData = 1003;
        if (!isText) return ClientSocket::close(unknownData);
        desk_->bayeux().receive(self(), data);
    }
    void endReadTurn() override { ClientSocket::endReadTurn(); }
    void progressed() override { ClientSocket::progressed(); }
    void drained() override { ClientSocket::drained(); }
    void closed() override { ClientSocket::closed(); }
    std::size_t maxFrameBytes() const override { return ClientSocket::maxFrameBytes(); }
    bool isTrusted() const override { return ClientSocket::isTrusted(); }

private:
    std::shared_ptr<ClientSocket> self() { return shared_from_this(); }

    void sendFrame(const bayeux::MessageArray& array, bool isReply) override {
        if (const auto socket = socket_.lock()) socket->send({.pieces = array, .isReply = isReply});
    }
    std::size_t unsentBytes() const override {
        const auto socket = socket_.lock();
        return socket ? socket->unsentBytes() : 0;
    }
    void closeFrame(std::uint16_t code) override {
        if (const auto socket = socket_.lock()) socket->close(code);
    }

    const std::shared_ptr<interpreters::Desk> desk_;
    std::weak_ptr<sockets::FrameSocket> socket_;  // fixed once open
};

}  // namespace gateway::endpoints
