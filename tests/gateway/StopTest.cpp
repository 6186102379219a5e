#include <stdexcept>
#include <utility>

#include "GatewayFixture.h"

namespace {

using StopTest = GatewayFixture;
using testing::HasSubstr;

TEST_F(StopTest, interruptGetsThroughWhenEveryThreadIsBlocked) {
    start({.handlerThreads = 2, .handlerQueue = 10});
    auto one = connect();
    auto two = connect();
    for (auto* client : {&one, &two}) client->send(evalOf(*client, "wait"));
    ASSERT_TRUE(interpreter_->waitForWaiting(2));
    EXPECT_EQ(post("/connector/v1/Interrupt", "{}").status, 200);
    for (auto* client : {&one, &two}) EXPECT_THAT(client->receive().body, HasSubstr("ended"));
}

TEST_F(StopTest, requestsBeyondTheQueueAreRefused) {
    start({.handlerThreads = 1, .handlerQueue = 1});
    auto running = connect();
    running.send(evalOf(running, "release"));
    ASSERT_TRUE(interpreter_->waitForWaiting(1));
    auto queued = connect();
    queued.send(evalOf(queued, "queued"));
    ASSERT_TRUE(waitForMetric("numora_requests_queued 1"));
    const auto refusal = post("/connector/v1/Eval", R"({"mcode":"1"})");
    EXPECT_EQ(refusal.status, 429);
    EXPECT_EQ(refusal.header("retry-after"), "1");
    interpreter_->release();
    EXPECT_EQ(running.receive().status, 200);
    EXPECT_THAT(queued.receive().body, HasSubstr("queued"));
}

TEST_F(StopTest, answersWhatRunsAndWhatIsQueuedAndEndsIdleConnections) {
    start({.handlerThreads = 1, .handlerQueue = 10});
    auto idle = connect();
    EXPECT_EQ(idle.get("/healthz").status, 200);
    auto running = connect();
    running.send(evalOf(running, "wait"));
    ASSERT_TRUE(interpreter_->waitForWaiting(1));
    auto queued = connect();
    queued.send(evalOf(queued, "never run"));
    ASSERT_TRUE(waitForMetric("numora_requests_queued 1"));
    gateway_->stop();
    EXPECT_THAT(running.receive().body, HasSubstr("ended"));
    EXPECT_EQ(queued.receive().status, 503);
    EXPECT_TRUE(idle.isEnded());
    EXPECT_TRUE(running.isEnded());
    EXPECT_THROW(connect(), std::exception);
    gateway_->stop();
}

TEST_F(StopTest, unusableOptionsAreRefused) {
    start();
    using gateway::GatewayOptions;
    const std::string port = std::to_string(gateway_->port());
    const std::pair<GatewayOptions, std::string> cases[] = {
        {{.port = gateway_->port()}, "Cannot listen on 127.0.0.1, port " + port + ": Address already in use"},
        {{.host = "0.0.0.0", .port = 0},
         "Listening on 0.0.0.0, which other machines can reach, needs a token that you choose."},
        {{.token = "short"}, "The token must consist of 16 to 512 letters, digits and -._~."},
        {{.host = "no-such-host.invalid"}, "The host name no-such-host.invalid cannot be resolved."},
        {{.port = 0, .console = "/no/such/folder"}, "The console folder /no/such/folder does not exist."},
        {{.port = 0, .tlsCertificate = "/no/file"}, "tls_cert and tls_key must be given together."},
        {{.port = 0, .tlsCertificate = "/no/file", .tlsKey = "/no/file"},
         "--tls-cert: /no/file cannot be used as a certificate in PEM: No such file or directory"},
        {{.port = 0, .tlsCertificate = "/proc/self/maps", .tlsKey = "/no/file"},
         "--tls-cert: /proc/self/maps cannot be used as a certificate in PEM: no start line"},
    };
    for (const auto& [options, problem] : cases) {
        try {
            gateway::Gateway(
                messages_, framework_, serializer_, [] { return true; }, options)
                .start();
            ADD_FAILURE() << "no " << problem;
        } catch (const std::exception& error) {
            EXPECT_EQ(error.what(), problem);
        }
    }
}

}  // namespace
