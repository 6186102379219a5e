#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bayeux/ClientMessage.h"
#include "bayeux/ClientSocket.h"
#include "bayeux/MessageArray.h"
#include "bayeux/replies.h"
#include "bayeux/transport.h"

namespace gateway::bayeux {

/// One array of messages and the replies to them, which go out together. A connect that is held replies
/// later.
///
/// Threads: `trust`, `isTrusted` and `isAbandoned` any; the others on the strand of the session whose message
/// is handled or held.
class Exchange : public std::enable_shared_from_this<Exchange> {
public:
    virtual ~Exchange() = default;
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    const std::vector<ClientMessage>& messages() const { return messages_; }
    virtual const Peer& peer() const = 0;
    /// Null for a POST.
    virtual std::shared_ptr<ClientSocket> socket() const { return nullptr; }
    /// The peer has shown the token, or a session of its own.
    virtual void trust() = 0;
    /// Whether a connect may be held: over HTTP only when it is alone, and never beside messages of another
    /// session, because the exchange is on one strand at a time.
    virtual bool canHold() const = 0;
    /// Whether nobody waits for replies any more.
    virtual bool isAbandoned() const = 0;
    /// Ends a held connect because of a later one.
    virtual void supersede() {}

    /// Adds messages, with commas between them.
    void add(std::string messages) { replies_.add(std::move(messages)); }
    void add(const MessageArray& messages) { replies_.add(messages); }
    /// Sends what was added.
    void flush() {
        if (!replies_.empty()) send(std::exchange(replies_, {}));
    }

protected:
    explicit Exchange(std::vector<ClientMessage> messages) : messages_(std::move(messages)) {}

    virtual void send(const MessageArray& replies) = 0;

private:
    const std::vector<ClientMessage> messages_;
    MessageArray replies_;
};

/// The exchange of one POST.
class PostExchange : public Exchange {
public:
    using Done = std::function<void(HttpAnswer)>;

    PostExchange(std::vector<ClientMessage> messages, Peer peer, Done done)
        : Exchange(std::move(messages)),
          peer_(std::move(peer)),
          done_(std::move(done)),
          isTrusted_(peer_.isAuthenticated) {}

    const Peer& peer() const override { return peer_; }
    void trust() override { isTrusted_ = true; }
    bool isTrusted() const { return isTrusted_; }
    bool canHold() const override { return messages().size() == 1; }
    bool isAbandoned() const override { return isAbandoned_; }
    void supersede() override { answer({408, "[]"}); }

    /// The answer is written, or nobody waits for it any more.
    void abandon() { isAbandoned_ = true; }
    /// The first answer counts.
    void answer(HttpAnswer answer) {
        if (!isAbandoned_ && done_) std::exchange(done_, nullptr)(std::move(answer));
    }

private:
    void send(const MessageArray& replies) override { answer({200, inAscii(replies.text())}); }

    const Peer peer_;
    Done done_;
    std::atomic<bool> isTrusted_;
    std::atomic<bool> isAbandoned_{false};
};

/// The exchange of one frame of a WebSocket.
class SocketExchange : public Exchange {
public:
    SocketExchange(std::vector<ClientMessage> messages, std::shared_ptr<ClientSocket> socket)
        : Exchange(std::move(messages)), socket_(std::move(socket)) {}

    const Peer& peer() const override { return socket_->peer(); }
    std::shared_ptr<ClientSocket> socket() const override { return socket_; }
    void trust() override { socket_->trust(); }
    bool canHold() const override {
        return std::ranges::all_of(messages(), [this](const ClientMessage& message) {
            return message.clientId() == messages().front().clientId();
        });
    }
    bool isAbandoned() const override { return socket_->isClosed(); }

private:
    void send(const MessageArray& replies) override { socket_->send(replies, true); }

    const std::shared_ptr<ClientSocket> socket_;
};

}  // namespace gateway::bayeux
