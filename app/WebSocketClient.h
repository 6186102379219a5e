#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ServerAddress.h"
#include "jupyter/relay/ServerSocket.h"

namespace app {

/// The WebSocket of a kernel of a server, in the encoding V1. A connection that is lost is tried again for a
/// minute, under the same session, for which the server keeps what was missed.
///
/// A server that has gone without a word is noticed within half a minute. Up to 64 MiB may wait for it.
///
/// Threads: one of its own.  Locks: none.
class WebSocketClient : public jupyter::ServerSocket {
public:
    WebSocketClient(ServerAddress server, const std::string& kernel);
    ~WebSocketClient() override;

    void start(jupyter::ServerSocketListener& listener) override;
    bool send(std::uint64_t number, std::string frame) override;
    void readOn() override;
    void goOn(std::set<std::uint64_t> dropped) override;

private:
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace app
