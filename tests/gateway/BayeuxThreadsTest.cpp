#include <atomic>
#include <future>
#include <thread>

#include "BayeuxFixture.h"

namespace {

using namespace std::chrono_literals;

/// Tells its first frame, or that it is closed, and counts all.
struct CountingSocket : gateway::bayeux::ClientSocket {
    CountingSocket(const gateway::bayeux::Peer& peer, std::atomic<int>& received)
        : ClientSocket(peer), count(received) {}
    void sendFrame(const gateway::bayeux::MessageArray& frame, bool) override {
        ++count;
        tell(frame.text());
    }
    std::size_t unsentBytes() const override { return 0; }
    void closeFrame(std::uint16_t) override { tell("closed"); }
    void tell(const std::string& text) {
        if (isFirst.exchange(false)) first.set_value(text);
    }

    std::atomic<int>& count;
    std::atomic<bool> isFirst{true};
    std::promise<std::string> first;
};

/// The loop runs on several threads, beside those that publish and those of the clients.
class BayeuxThreadsTest : public BayeuxFixture {
protected:
    static constexpr int count = 2'000;

    void SetUp() override {
        serve({.connectsPerSecond = 1'000'000});
        for (int i = 0; i < 3; ++i) loops_.emplace_back([this] { context_.run(); });
    }
    void TearDown() override {
        server_->stop();
        context_.stop();
        for (auto& loop : loops_) loop.join();
    }

    /// The body of the answer to a POST; the request is given up after `patience`.
    std::string wait(const std::string& body, std::chrono::milliseconds patience) {
        const auto answered = std::make_shared<std::promise<std::string>>();
        const auto pending = server_->post(
            body, peer_, [answered](const HttpAnswer& answer) { answered->set_value(answer.body); });
        auto answer = answered->get_future();
        return answer.wait_for(patience) == std::future_status::ready ? answer.get() : "";
    }

    /// A client with acknowledgements that loses every third answer.
    void readAll(const std::string& name) {
        const auto clientId = clientIdIn(wait(handshakeText(R"({"ack":true})"), 30s));
        const auto message = [&](const std::string& members) {
            return R"([{"clientId":")" + clientId + R"(",)" + members + "}]";
        };
        wait(message(R"("channel":"/meta/subscribe","subscription":"/numbers/)" + name + '"'), 30s);
        ++ready_;
        int next = 0;
        int ack = 0;
        for (int round = 0; next < count && !HasFailure(); ++round) {
            const auto answer = wait(message(R"("channel":"/meta/connect","connectionType":"long-polling",)"
                                             R"("advice":{"timeout":500},"ext":{"ack":)" +
                                             std::to_string(ack) + "}"),
                                     round % 7 == 0 ? 0ms : 30'000ms);
            if (round % 3 == 0) continue;
            for (const int number : numbersIn(answer)) ASSERT_EQ(number, next++);
            ack = ackIn(answer).value_or(ack);
        }
        wait(message(R"("channel":"/meta/disconnect")"), 30s);
    }

    std::vector<std::thread> loops_;
    std::atomic<int> ready_{0};
    std::atomic<int> received_{0};
};

TEST_F(BayeuxThreadsTest, losesNothingWhateverHappensAtTheSameTime) {
    const std::vector<std::string> names = {"0", "1"};
    std::vector<std::thread> clients;
    for (const auto& name : names) clients.emplace_back([this, &name] { readAll(name); });
    while (ready_ < 2) std::this_thread::yield();
    std::vector<std::thread> publishers;
    for (const auto& name : names) {
        publishers.emplace_back([this, &name] {
            for (int i = 0; i < count; ++i) {
                publish("/numbers/" + name, std::to_string(i));
                if (i % 10 == 0) server_->sweep();
            }
        });
    }
    for (auto& thread : publishers) thread.join();
    for (auto& thread : clients) thread.join();
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(BayeuxThreadsTest, opensAndClosesSocketsWhileMessagesComeAndTheServerStops) {
    serve({.sessionsPerPeer = 1'000'000, .handshakesPerSecond = 1'000'000});
    std::atomic<bool> isStopped{false};
    const auto useSockets = [&] {
        while (!isStopped) {
            const auto socket = std::make_shared<CountingSocket>(peer_, received_);
            server_->open(socket);
            server_->receive(socket, handshakeText());
            server_->receive(socket, R"([{"channel":"/meta/subscribe","subscription":"/a","clientId":")" +
                                         clientIdIn(socket->first.get_future().get()) + R"("}])");
            socket->endReadTurn();
            socket->drained();
            socket->closed();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) threads.emplace_back(useSockets);
    threads.emplace_back([&] {
        while (!isStopped) publish("/a", "1");
    });
    while (received_ < 1'000) std::this_thread::yield();
    server_->stop();
    isStopped = true;
    for (auto& thread : threads) thread.join();
}

}  // namespace
