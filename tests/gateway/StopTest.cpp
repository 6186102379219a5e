#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "GatewayFixture.h"

namespace {

class StopTest : public GatewayFixture {
protected:
    static gateway::GatewayOptions withThreads(std::size_t threads, std::size_t queue) {
        gateway::GatewayOptions options;
        options.handlerThreads = threads;
        options.handlerQueue = queue;
        return options;
    }
    static std::string evalOf(const TestClient& client, const std::string& code) {
        return client.post("/connector/v1/Eval", R"({"mcode":")" + code + R"("})");
    }
    void waitForQueued(int count) const {
        while (get("/metrics").body.find("\nnumora_requests_queued " + std::to_string(count) + "\n") ==
               std::string::npos) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline_);
        }
    }
    const std::chrono::steady_clock::time_point deadline_ =
        std::chrono::steady_clock::now() + std::chrono::seconds(10);
};

TEST_F(StopTest, interruptGetsThroughWhenEveryThreadIsBlocked) {
    start(withThreads(2, 10));
    auto one = connect();
    auto two = connect();
    one.send(evalOf(one, "wait"));
    two.send(evalOf(two, "wait"));
    ASSERT_TRUE(interpreter_->waitForWaiting(2));
    EXPECT_EQ(post("/connector/v1/Interrupt", "{}").status, 200);
    EXPECT_NE(one.receive().body.find("ended"), std::string::npos);
    EXPECT_NE(two.receive().body.find("ended"), std::string::npos);
}

TEST_F(StopTest, requestsBeyondTheQueueAreRefused) {
    start(withThreads(1, 1));
    auto running = connect();
    running.send(evalOf(running, "release"));
    ASSERT_TRUE(interpreter_->waitForWaiting(1));
    auto queued = connect();
    queued.send(evalOf(queued, "queued"));
    waitForQueued(1);
    const auto refusal = post("/connector/v1/Eval", "{}");
    EXPECT_EQ(refusal.status, 429);
    EXPECT_EQ(refusal.header("retry-after"), "1");
    interpreter_->release();
    EXPECT_EQ(running.receive().status, 200);
    EXPECT_NE(queued.receive().body.find("queued"), std::string::npos);
}

TEST_F(StopTest, answersWhatRunsAndWhatIsQueuedAndEndsIdleConnections) {
    start(withThreads(1, 10));
    auto idle = connect();
    idle.send(idle.head("GET /healthz"));
    EXPECT_EQ(idle.receive().status, 200);
    auto running = connect();
    running.send(evalOf(running, "wait"));
    ASSERT_TRUE(interpreter_->waitForWaiting(1));
    auto queued = connect();
    queued.send(evalOf(queued, "never run"));
    waitForQueued(1);
    const auto begin = std::chrono::steady_clock::now();
    gateway_->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    const auto ended = running.receive();
    EXPECT_EQ(ended.status, 200);
    EXPECT_NE(ended.body.find("ended"), std::string::npos);
    EXPECT_EQ(queued.receive().status, 503);
    EXPECT_TRUE(idle.isEnded());
    EXPECT_TRUE(running.isEnded());
    EXPECT_THROW(connect(), std::exception);
    gateway_->stop();
}

TEST_F(StopTest, unusableOptionsAreRefused) {
    start();
    const auto failureOf = [this](const gateway::GatewayOptions& options) -> std::string {
        try {
            gateway::Gateway gateway(
                messages_, framework_, serializer_, [] { return true; }, options);
            gateway.start();
            return "";
        } catch (const std::exception& error) {
            return error.what();
        }
    };
    gateway::GatewayOptions taken;
    taken.port = gateway_->port();
    EXPECT_EQ(failureOf(taken),
              "Cannot listen on 127.0.0.1, port " + std::to_string(taken.port) + ": Address already in use");
    gateway::GatewayOptions open;
    open.host = "0.0.0.0";
    open.port = 0;
    EXPECT_NE(failureOf(open).find("needs a token"), std::string::npos);
    open.token = "short";
    EXPECT_NE(failureOf(open).find("A token consists of"), std::string::npos);
    gateway::GatewayOptions nowhere;
    nowhere.host = "no-such-host.invalid";
    EXPECT_NE(failureOf(nowhere).find("no-such-host.invalid"), std::string::npos);
    gateway::GatewayOptions folder;
    folder.port = 0;
    folder.console = "/no/such/folder";
    EXPECT_NE(failureOf(folder).find("/no/such/folder"), std::string::npos);
    gateway::GatewayOptions tls;
    tls.port = 0;
    tls.tlsCertificate = "/no/such/file";
    EXPECT_NE(failureOf(tls).find("its key"), std::string::npos);
    tls.tlsKey = "/no/such/file";
    EXPECT_EQ(failureOf(tls), "Cannot use /no/such/file as a certificate in PEM: No such file or directory");
    tls.tlsCertificate = "/proc/self/maps";
    EXPECT_EQ(failureOf(tls), "Cannot use /proc/self/maps as a certificate in PEM: no start line");
}

TEST_F(StopTest, eachGatewayMakesATokenOfItsOwn) {
    gateway::GatewayOptions options;
    options.port = 0;
    const gateway::Gateway one(
        messages_, framework_, serializer_, [] { return true; }, options);
    const gateway::Gateway two(
        messages_, framework_, serializer_, [] { return true; }, options);
    EXPECT_EQ(one.token().size(), 40U);
    EXPECT_NE(one.token(), two.token());
}

}  // namespace
