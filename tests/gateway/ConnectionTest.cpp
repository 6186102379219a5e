#include <chrono>
#include <list>
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
                                "\r\nContent-Type: application/json\r\nTransfer-Encoding: Chunked\r\n") +
                "1\r\n{\r\n1;a=b\r\n}\r\n0\r\nC: d\r\n\r\n");
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

TEST_F(ConnectionTest, bodyThatComesTooSlowlyEndsTheConnection) {
    start(withLimits({.bodyTime = 100ms}));
    auto client = connect();
    client.send(client.head("POST /cometd", "Content-Type: application/json\r\nContent-Length: 1000\r\n"));
    bool isOver = false;
    for (int i = 0; i < 200 && !isOver; ++i) isOver = !client.send(" ") || client.waitForMore(20ms);
    EXPECT_TRUE(isOver);
}

struct ChunksCase {
    std::string name;
    std::string bytes;
    int status = 0;
};
class ChunksTest : public ConnectionTest, public testing::WithParamInterface<ChunksCase> {};

TEST_P(ChunksTest, withoutEndAreRefusedBeforeAnyTokenIsShown) {
    start(withLimits({.bodyBytes = 1000}));
    auto client = connect();
    client.send(
        client.head("POST /cometd", "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n") +
        GetParam().bytes);
    EXPECT_EQ(client.receive().status, GetParam().status);
    EXPECT_TRUE(client.isEnded());
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

INSTANTIATE_TEST_SUITE_P(
    Client, ChunksTest,
    testing::Values(ChunksCase{"Extension", "1;" + std::string(200'000, 'x'), 400},
                    ChunksCase{"Trailer", "0\r\n" + repeated("a: b\r\n", 30'000), 400},
                    ChunksCase{"Extensions", repeated("1;" + std::string(1000, 'x') + "\r\na\r\n", 200),
                               413}),
    [](const auto& info) { return info.param.name; });

struct FramingCase {
    std::string name;
    std::string version;
    std::string headers;
};
class FramingTest : public ConnectionTest, public testing::WithParamInterface<FramingCase> {};

// What is in the chunk would be a request of its own for who takes the body to end elsewhere.
TEST_P(FramingTest, thatCanBeReadInTwoWaysEndsTheConnection) {
    start();
    auto client = connect();
    const std::string hidden = client.head("GET /healthz");
    client.send("POST /cometd " + GetParam().version +
                "\r\nHost: 127.0.0.1:" + std::to_string(gateway_->port()) +
                "\r\nContent-Type: application/json\r\nConnection: keep-alive\r\n" + GetParam().headers +
                "\r\n0\r\n\r\n" + hidden);
    EXPECT_EQ(client.receive().status, 400);
    EXPECT_TRUE(client.isEnded());
}

INSTANTIATE_TEST_SUITE_P(
    Client, FramingTest,
    testing::Values(
        FramingCase{"OtherCoding", "HTTP/1.1", "Transfer-Encoding: gzip\r\n"},
        FramingCase{"ChunkedIsNotTheLast", "HTTP/1.1", "Transfer-Encoding: chunked, identity\r\n"},
        FramingCase{"TwoCodings", "HTTP/1.1", "Transfer-Encoding: gzip, chunked\r\n"},
        FramingCase{"TwoHeaders", "HTTP/1.1",
                    "Transfer-Encoding: identity\r\nTransfer-Encoding: chunked\r\n"},
        FramingCase{"WithLength", "HTTP/1.1", "Transfer-Encoding: xchunked\r\nContent-Length: 5\r\n"},
        FramingCase{"OldVersion", "HTTP/1.0", "Transfer-Encoding: chunked\r\n"}),
    [](const auto& info) { return info.param.name; });

TEST_F(ConnectionTest, clientThatTakesNoAnswerIsGivenUp) {
    start(withLimits({.writeTime = 100ms}));
    auto client = connect();
    client.send(evalOf(client, std::string(8'000'000, 'x')));
    EXPECT_TRUE(waitForConnections(1));
}

TEST_F(ConnectionTest, clientsThatGoAwayCostTheirRequestsOnly) {
    start(withLimits({.connections = 3}));
    for (int i = 1; i <= 5; ++i) {
        auto client = connect();
        client.send(evalOf(client, "release") + client.head("GET /healthz"));
        ASSERT_TRUE(interpreter_->waitForWaiting(i)) << "no room for client " << i;
    }
    EXPECT_EQ(post("/connector/v1/Eval", R"({"mcode":"1"})").status, 200);
    interpreter_->release();
    EXPECT_TRUE(waitForConnections(1));
}

TEST_F(ConnectionTest, clientThatWillSendNoMoreStillGetsItsAnswers) {
    start();
    auto client = connect();
    client.send(evalOf(client, "release") + evalOf(client, "half"));
    ASSERT_TRUE(interpreter_->waitForWaiting(1));
    client.endSending();
    ASSERT_FALSE(client.waitForMore(100ms));
    interpreter_->release();
    EXPECT_NE(client.receive().body.find("ended"), std::string::npos);
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

class StrangerTest : public ConnectionTest {
protected:
    static std::string head(const TestClient& client, std::size_t size) {
        return client.head("POST /cometd", "Content-Type: application/json\r\nContent-Length: " +
                                               std::to_string(size) + "\r\n");
    }
    static std::string post(const TestClient& client, const std::string& body) {
        return head(client, body.size()) + body;
    }
    /// The id of a session whose token was in the handshake.
    std::string openSession() const {
        const std::string token(TestClient::token);
        auto client = connect();
        client.send(post(client, R"([{"channel":"/meta/handshake","version":"1.0",
            "supportedConnectionTypes":["long-polling"],"ext":{"connector":{"token":")" +
                                     token + R"("}}}])"));
        const std::string reply = client.receive().body;
        return reply.substr(reply.find("\"clientId\":\"") + 12, 40);
    }
    int publish(const std::string& before, const std::string& behind) const {
        auto client = connect();
        client.send(post(client, R"([{"channel":"/a",)" + before + R"("data":")" + std::string(200'000, 'x') +
                                     '"' + behind + "}]"));
        return client.receive().status;
    }
};

TEST_F(StrangerTest, sendsALargeBodyWhenItNamesItsSessionAtTheBeginning) {
    start(withLimits({.strangerBytes = 1000, .unprovenBodies = 0}));
    const std::string clientId = R"("clientId":")" + openSession() + '"';
    EXPECT_EQ(publish(clientId + ",", ""), 200);
    EXPECT_EQ(publish("", "," + clientId), 413);
    EXPECT_EQ(publish(R"("clientId":"none",)", ""), 413);
}

TEST_F(StrangerTest, sendsALargeBodyThatNamesItsSessionAtTheEndWhenFewDo) {
    start(withLimits({.strangerBytes = 1000, .unprovenBodies = 1}));
    const std::string clientId = R"("clientId":")" + openSession() + '"';
    EXPECT_EQ(publish("", "," + clientId), 200);
    EXPECT_EQ(publish("", ""), 413);
    EXPECT_EQ(publish("", "," + clientId), 200);
}

TEST_F(StrangerTest, isRefusedWhileTheRestOfALargeBodyHasNotCome) {
    start(withLimits({.unprovenBodies = 0}));
    auto client = connect();
    client.send(head(client, 10'000'000) + std::string(200'000, ' '));
    EXPECT_EQ(client.receive().status, 413);
}

TEST_F(ConnectionTest, strangersGiveWayTheOldestFirstAndKnownClientsDoNot) {
    start(withLimits({.connections = 3}));
    auto known = connect();
    known.send(evalOf(known, "1"));
    EXPECT_EQ(known.receive().status, 200);
    auto first = connect();
    auto second = connect();
    second.send(second.head("GET /healthz"));
    EXPECT_EQ(second.receive().status, 200);
    EXPECT_EQ(get("/metrics").status, 200);
    EXPECT_TRUE(first.isEnded());
    for (auto* client : {&known, &second}) {
        client->send(client->head("GET /healthz"));
        EXPECT_EQ(client->receive().status, 200);
    }
    EXPECT_NE(get("/metrics").body.find("\nnumora_connections_refused_total 1\n"), std::string::npos);
}

TEST_F(ConnectionTest, someConnectionsAreKeptForInterruptsAndForHealth) {
    start(withLimits({.connections = 16}));
    std::list<TestClient> clients;
    for (int i = 0; i < 15; ++i) {
        auto& client = clients.emplace_back(gateway_->port());
        client.send(evalOf(client, "1"));
        EXPECT_EQ(client.receive().status, 200);
    }
    const auto refusal = post("/connector/v1/Eval", "{}");
    EXPECT_EQ(refusal.status, 503);
    EXPECT_EQ(refusal.header("retry-after"), "1");
    EXPECT_EQ(post("/connector/v1/Interrupt", "{}").status, 200);
    EXPECT_EQ(get("/healthz").status, 200);
    clients.clear();
    EXPECT_TRUE(waitForConnections(1));
    EXPECT_EQ(post("/connector/v1/Eval", "{}").status, 200);
}

}  // namespace
