// Bodies and frames of Bayeux clients: no body has two answers, and everything that is sent is JSON.
//
// Each line is one of them, over HTTP when its first byte is even, else over a WebSocket. In it, $ stands for
// the id of a client that has shaken hands. `!` as the first byte lets time pass.

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "bayeux/BayeuxServer.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "connector/json/parse.h"
#include "dispatch/RequestDispatcher.h"
#include "messages/LocalMessageService.h"
#include "messages/LocalServiceFramework.h"

namespace {

using namespace std::chrono_literals;
using gateway::bayeux::HttpAnswer;

class Fixture {
public:
    Fixture() {
        server_.open(socket_);
        post(R"([{"channel":"/meta/handshake","version":"1.0","supportedConnectionTypes":["websocket"],)"
             R"("ext":{"ack":true}}])");
    }
    ~Fixture() {
        pending_.clear();
        socket_->closed();
        server_.stop();
        turn();
    }
    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;

    void take(std::string line) {
        for (auto at = line.find('$'); at != std::string::npos; at = line.find('$', at + client_.size())) {
            line.replace(at, 1, client_);
        }
        if (line.starts_with('!')) {
            now_ += 21s;
            server_.sweep();
        } else if (line[0] % 2 == 0) {
            post(line.substr(1));
        } else if (line.size() <= socket_->maxFrameBytes()) {
            server_.receive(socket_, line.substr(1));
            socket_->endReadTurn();
        }
        turn();
    }

private:
    struct Socket : gateway::bayeux::ClientSocket {
        explicit Socket(Fixture& owner)
            : ClientSocket({.address = "a", .isAuthenticated = true}), fixture(owner) {}
        void sendFrame(const gateway::bayeux::MessageArray& frame, bool) override {
            connector::json::parse(frame.text());
            fixture.noteClient(frame.text());
        }
        std::size_t unsentBytes() const override { return 0; }
        void closeFrame(std::uint16_t) override {}

        Fixture& fixture;
    };

    void post(const std::string& body) {
        const auto count = std::make_shared<int>(0);
        pending_.push_back(server_.post(body, {.address = "a", .isAuthenticated = true},
                                        [this, count](const HttpAnswer& answer) {
                                            if (++*count > 1) std::abort();
                                            connector::json::parse(answer.body);
                                            noteClient(answer.body);
                                        }));
        turn();
    }
    void noteClient(std::string_view text) {
        constexpr std::string_view key = R"("clientId":")";
        const auto at = text.find(key);
        if (at != std::string_view::npos) client_ = text.substr(at + key.size(), 40);
    }
    void turn() {
        context_.restart();
        context_.poll();
    }

    std::chrono::steady_clock::time_point now_{};
    boost::asio::io_context context_;
    messages::LocalMessageService messages_{{.logged = {"/b/**"}, .now = [this] { return now_; }}};
    dispatch::RequestDispatcher dispatcher_{std::make_shared<messages::LocalServiceFramework>(),
                                            std::make_shared<connector::json::JsonSerializer>(),
                                            {.threads = 1}};
    gateway::bayeux::BayeuxServer server_{
        context_, messages_, dispatcher_, {.sweepInterval = 1h, .now = [this] { return now_; }}};
    std::vector<std::unique_ptr<gateway::bayeux::PendingPost>> pending_;
    const std::shared_ptr<Socket> socket_ = std::make_shared<Socket>(*this);
    std::string client_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view lines(reinterpret_cast<const char*>(data), size);
    Fixture fixture;
    for (int count = 0; !lines.empty() && count < 32; ++count) {
        const auto end = std::min(lines.find('\n'), lines.size());
        if (end > 0) fixture.take(std::string(lines.substr(0, end)));
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    return 0;
}
