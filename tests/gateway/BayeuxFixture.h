#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <Poco/JSON/Object.h>
#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>

#include "bayeux/BayeuxServer.h"
#include "connector/ServiceFramework.h"
#include "messages/LocalMessageService.h"
#include "ports/LocalPort.h"

/// A server without a network. The test turns the loop and moves the clock.
class BayeuxFixture : public testing::Test {
protected:
    using HttpAnswer = gateway::bayeux::HttpAnswer;
    using Peer = gateway::bayeux::Peer;

    /// A POST as its client sees it.
    struct Post {
        Post() = default;
        ~Post() {
            if (answer && pending && !isLost) pending->written();
        }

        Post(const Post&) = delete;
        Post& operator=(const Post&) = delete;

        std::optional<HttpAnswer> answer;
        bool isLost = false;  ///< the network has not taken the answer
        std::unique_ptr<gateway::bayeux::PendingPost> pending;
        std::string body() const { return answer ? answer->body : "not answered"; }
    };
    /// A WebSocket as its client sees it.
    struct WebSocket : gateway::bayeux::ClientSocket {
        explicit WebSocket(const Peer& peer) : ClientSocket(peer) {}
        void sendFrame(const gateway::bayeux::MessageArray& frame, bool) override {
            frames.push_back(frame.text());
        }
        std::size_t unsentBytes() const override { return unsent; }
        void closeFrame(std::uint16_t code) override { closeCode = code; }
        /// The frames since the last call, with a line break between them.
        std::string received();

        std::vector<std::string> frames;
        std::size_t unsent = 0;
        std::optional<int> closeCode;
    };

    BayeuxFixture();
    ~BayeuxFixture() override;

    /// Makes a new server with `options`, on the clock of the test and the token "sesame".
    void serve(gateway::bayeux::ServerOptions options = {});
    /// Runs what is ready.
    void turn() {
        context_.restart();
        context_.poll();
    }
    /// Runs what is ready, moves the clock, and lets the server do what is due then.
    void pass(std::chrono::milliseconds time);
    /// Runs what becomes ready on other threads until `isDone`.
    void turnUntil(const std::function<bool()>& isDone);

    /// Sends a body, in which $ stands for the id of the client, and turns.
    std::shared_ptr<Post> post(const std::string& body);
    /// The same for a request that has to be answered at once. Returns the body of the answer.
    std::string ask(const std::string& body) { return post(body)->body(); }
    std::shared_ptr<WebSocket> openSocket();
    void send(WebSocket& socket, const std::string& text);
    std::string askSocket(WebSocket& socket, const std::string& text) {
        send(socket, text);
        return socket.received();
    }

    static std::string handshakeText(const std::string& ext = "{}");
    /// A handshake makes a new client, which $ stands for from then on.
    void handshake(const std::string& ext = "{}") { client_ = clientIdIn(ask(handshakeText(ext))); }
    void handshakeOn(WebSocket& socket, const std::string& ext = "{}") {
        client_ = clientIdIn(askSocket(socket, handshakeText(ext)));
    }
    void subscribe(const std::string& pattern) {
        ask(R"([{"channel":"/meta/subscribe","clientId":"$","subscription":")" + pattern + R"("}])");
    }
    /// A connect over HTTP without a wish for an early answer.
    std::shared_ptr<Post> connect(const std::string& members = "") {
        return post(R"([{"channel":"/meta/connect","clientId":"$","connectionType":"long-polling")" +
                    members + "}]");
    }
    void publish(const std::string& channel, const std::string& data) {
        messages_.publish(channel, connector::common::DataBuffer(data));
    }

    std::string withClient(std::string text) const;
    /// The id that a reply to a handshake gives, "" without one.
    static std::string clientIdIn(const std::string& reply);
    /// The numbers that an array delivers, and the one of its acknowledgement.
    static std::vector<int> numbersIn(const std::string& array);
    static std::optional<int> ackIn(const std::string& array);
    /// The advice member of replies that say what to do next.
    static std::string advice(const std::string& reconnect) {
        return R"("advice":{"reconnect":")" + reconnect +
               R"(","interval":0,"timeout":25000,"maxInterval":20000})";
    }

    Peer peer_{.address = "192.0.2.1", .isAuthenticated = true};
    std::string client_;  // the id that $ stands for
    std::chrono::steady_clock::time_point now_{std::chrono::hours(1)};
    boost::asio::io_context context_;
    messages::LocalMessageService messages_{
        {.logged = {"/logged/**"}, .firstNumber = 1, .now = [this] { return now_; }}};

    /// What the service does with the data of a request; runs on a thread of the port.
    std::function<Poco::JSON::Object::Ptr(const Poco::JSON::Object&)> onRequest;
    std::unique_ptr<gateway::ports::LocalPort> port_;
    std::unique_ptr<gateway::bayeux::BayeuxServer> server_;
};
