#include <chrono>
#include <string>

#include "GatewayFixture.h"

namespace {

using namespace std::chrono_literals;

class ConnectionTest : public GatewayFixture {
protected:
    static gateway::GatewayOptions withLimits(gateway::ConnectionLimits limits) {
        gateway::GatewayOptions options;
        options.limits = limits;
        return options;
    }
    /// Asks until the number of connections, the asking one included, is `count`; false when it does not
    /// come to that.
    bool waitForConnections(int count) const {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        const std::string line = "\nnumora_connections " + std::to_string(count) + "\n";
        while (std::chrono::steady_clock::now() < deadline) {
            if (get("/metrics").body.find(line) != std::string::npos) return true;
        }
        return false;
    }
    std::string evalOf(const TestClient& client, const std::string& code) const {
        return client.post("/connector/v1/Eval", R"({"mcode":")" + code + R"("})");
    }
};

TEST_F(ConnectionTest, servesRequestsOneAfterTheOther) {
    start();
    auto client = connect();
    for (const char* code : {"one", "two"}) {
        client.send(evalOf(client, code));
        EXPECT_NE(client.receive().body.find(code), std::string::npos);
    }
    client.send(client.head("GET /healthz", "Connection: close\r\n"));
    EXPECT_EQ(client.receive().header("connection"), "close");
    EXPECT_TRUE(client.isEnded());
}

TEST_F(ConnectionTest, answersPipelinedRequestsInTheirOrder) {
    start();
    auto client = connect();
    std::string requests;
    for (int i = 0; i < 20; ++i) requests += evalOf(client, "code " + std::to_string(i) + ".");
    client.send(requests);
    for (int i = 0; i < 20; ++i) {
        EXPECT_NE(client.receive().body.find("code " + std::to_string(i) + "."), std::string::npos);
    }
}

TEST_F(ConnectionTest, takesARequestThatComesByteByByteAndAChunkedOne) {
    start();
    auto client = connect();
    for (const char byte : evalOf(client, "bytes")) client.send({&byte, 1});
    EXPECT_NE(client.receive().body.find("bytes"), std::string::npos);
    client.send(client.head("POST /connector/v1/Interrupt",
                            "Authorization: Bearer " + std::string(TestClient::token) +
                                "\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n") +
                "1\r\n{\r\n1\r\n}\r\n0\r\n\r\n");
    EXPECT_EQ(client.receive().status, 200);
}

TEST_F(ConnectionTest, lettingTheClientGoOnComesBeforeTheBodyAndAfterTheJudgement) {
    start();
    auto client = connect();
    const std::string body = "{}";
    const std::string whole = client.post("/connector/v1/Interrupt", body, "Expect: 100-continue\r\n");
    client.send(whole.substr(0, whole.size() - body.size()));
    EXPECT_EQ(client.receive().status, 100);
    client.send(body);
    EXPECT_EQ(client.receive().status, 200);
    client.send(client.head("POST /messages", "Content-Length: 2\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(client.receive().status, 401);
    EXPECT_TRUE(client.isEnded());
}

TEST_F(ConnectionTest, refusalOfALargeBodyReachesAClientThatIsStillSending) {
    start(withLimits({.bodyBytes = 1000}));
    auto client = connect();
    client.send(client.post("/connector/v1/Eval", std::string(4'000'000, ' ')));
    EXPECT_EQ(client.receive().status, 413);
    client.close();
    auto chunked = connect();
    chunked.send(chunked.head("POST /connector/v1/Eval",
                              "Authorization: Bearer " + std::string(TestClient::token) +
                                  "\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n") +
                 "800\r\n" + std::string(0x800, ' ') + "\r\n");
    EXPECT_EQ(chunked.receive().status, 413);
}

struct SlownessCase {
    std::string name;
    std::string bytes;
};
class SlownessTest : public ConnectionTest, public testing::WithParamInterface<SlownessCase> {};

TEST_P(SlownessTest, endsTheConnectionAndNoOther) {
    start(withLimits({.headTime = 100ms, .bodyTime = 100ms, .idleTime = 100ms}));
    auto client = connect();
    client.send(GetParam().bytes);
    EXPECT_TRUE(client.isEnded());
    EXPECT_EQ(get("/healthz").status, 200);
}

INSTANTIATE_TEST_SUITE_P(Client, SlownessTest,
                         testing::Values(SlownessCase{"Silent", ""},
                                         SlownessCase{"Head", "POST / HTTP/1.1\r\nHo"}),
                         [](const auto& info) { return info.param.name; });

TEST_F(ConnectionTest, bodyThatStopsComingEndsTheConnection) {
    start(withLimits({.bodyTime = 100ms}));
    auto client = connect();
    const std::string whole = evalOf(client, "never");
    client.send(whole.substr(0, whole.size() - 1));
    EXPECT_TRUE(client.isEnded());
}

TEST_F(ConnectionTest, clientThatTakesNoAnswerIsGivenUp) {
    start(withLimits({.writeTime = 100ms}));
    auto client = connect();
    client.send(evalOf(client, std::string(8'000'000, 'x')));
    EXPECT_TRUE(waitForConnections(1));
}

TEST_F(ConnectionTest, clientThatGoesAwayCostsItsRequestOnly) {
    start();
    auto client = connect();
    client.send(evalOf(client, "release"));
    ASSERT_TRUE(interpreter_->waitForWaiting(1));
    client.close();
    EXPECT_EQ(post("/connector/v1/Eval", R"({"mcode":"1"})").status, 200);
    interpreter_->release();
    EXPECT_TRUE(waitForConnections(1));
}

TEST_F(ConnectionTest, clientThatWillSendNoMoreStillGetsItsAnswer) {
    start();
    auto client = connect();
    client.send(evalOf(client, "half"));
    client.endSending();
    EXPECT_NE(client.receive().body.find("half"), std::string::npos);
    EXPECT_TRUE(client.isEnded());
}

class HeldConnectTest : public ConnectionTest {
protected:
    static std::string idIn(const std::string& reply) {
        const auto at = reply.find("\"clientId\":\"") + 12;
        return reply.substr(at, reply.find('"', at) - at);
    }
    /// A client with a connect that is held.
    void hold(TestClient& client) {
        client.send(client.post("/cometd/handshake", R"([{"channel":"/meta/handshake","version":"1.0",
            "supportedConnectionTypes":["long-polling"],"id":"1"}])"));
        id_ = idIn(client.receive().body);
        client.send(client.post(
            "/cometd/",
            R"([{"channel":"/meta/subscribe","subscription":"/a","clientId":")" + id_ + R"(","id":"2"}])"));
        EXPECT_NE(client.receive().body.find(R"("successful":true)"), std::string::npos);
        client.send(connectRequest(client));
    }
    std::string connectRequest(const TestClient& client) const {
        return client.post("/cometd/connect", R"([{"channel":"/meta/connect","connectionType":"long-polling",
            "clientId":")" + id_ + R"(","id":"3"}])");
    }
    void publish() {
        connector::common::DataBuffer data;
        data.append("42");
        messages_.publish("/a", data).get();
    }

    std::string id_;
};

TEST_F(HeldConnectTest, isAnsweredByADelivery) {
    start();
    auto client = connect();
    hold(client);
    // On the same connection, so it is taken once the connect has been answered.
    client.send(client.head("GET /healthz"));
    publish();
    const auto answer = client.receive();
    EXPECT_EQ(answer.header("content-type"), "application/json;charset=UTF-8");
    EXPECT_NE(answer.body.find(R"({"channel":"/a","data":42})"), std::string::npos) << answer.body;
    EXPECT_EQ(client.receive().body, R"({"status":"ok"})");
}

TEST_F(HeldConnectTest, isReleasedWhenTheClientGoesAwayAndLosesNothing) {
    start();
    {
        auto client = connect();
        hold(client);
    }
    ASSERT_TRUE(waitForConnections(1));
    publish();
    auto again = connect();
    again.send(connectRequest(again));
    const std::string answer = again.receive().body;
    EXPECT_NE(answer.find(R"({"channel":"/a","data":42})"), std::string::npos) << answer;
}

TEST_F(ConnectionTest, tooManyConnectionsAreEndedAtOnce) {
    start(withLimits({.connections = 2}));
    auto one = connect();
    auto two = connect();
    one.send(one.head("GET /healthz"));
    two.send(two.head("GET /healthz"));
    EXPECT_EQ(one.receive().status, 200);
    EXPECT_EQ(two.receive().status, 200);
    EXPECT_TRUE(connect().isEnded());
    one.close();
    // Until the server has noticed, there is no room.
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    bool hasRoom = false;
    while (!hasRoom && std::chrono::steady_clock::now() < deadline) hasRoom = get("/healthz").status == 200;
    EXPECT_TRUE(hasRoom);
}

}  // namespace
