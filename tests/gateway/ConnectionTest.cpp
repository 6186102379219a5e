#include <chrono>
#include <list>
#include <string>
#include <utility>

#include "GatewayFixture.h"

namespace {

using namespace std::chrono_literals;

class ConnectionTest : public GatewayFixture {
protected:
    void start(gateway::ConnectionLimits limits = {}) { GatewayFixture::start({.limits = limits}); }
    /// Asks until the number of connections, the asking one included, is `count`.
    bool waitForConnections(int count) const {
        return waitForMetric("numora_connections " + std::to_string(count));
    }
};

TEST_F(ConnectionTest, answersPipelinedRequestsInTheirOrderAndEndsWhenAsked) {
    start();
    auto client = connect();
    std::string requests;
    for (int i = 0; i < 20; ++i) requests += evalOf(client, "code " + std::to_string(i) + ".");
    client.send(requests + client.head("GET /healthz", "Connection: close\r\n"));
    for (int i = 0; i < 20; ++i) {
        EXPECT_NE(client.receive().body.find("code " + std::to_string(i) + "."), std::string::npos);
    }
    EXPECT_EQ(client.receive().header("connection"), "close");
    EXPECT_TRUE(client.isEnded());
}

TEST_F(ConnectionTest, takesARequestThatComesByteByByteAndAChunkedOne) {
    start();
    auto client = connect();
    for (const char byte : evalOf(client, "bytes")) client.send({&byte, 1});
    EXPECT_NE(client.receive().body.find("bytes"), std::string::npos);
    client.send(
        client.head("POST /cometd", "Content-Type: application/json\r\nTransfer-Encoding: Chunked\r\n") +
        "1\r\n{\r\n1;a=b\r\n}\r\n0\r\nC: d\r\n\r\n");
    EXPECT_EQ(client.receive().status, 200);
}

TEST_F(ConnectionTest, lettingTheClientGoOnComesBeforeTheBodyAndAfterTheCheck) {
    start();
    auto client = connect();
    const std::string whole = client.post("/connector/v1/Interrupt", "{}", "Expect: 100-continue\r\n");
    client.send(whole.substr(0, whole.size() - 2));
    EXPECT_EQ(client.receive().status, 100);
    client.send("{}");
    EXPECT_EQ(client.receive().status, 200);
    client.send(client.head("POST /messages", "Content-Length: 2\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(client.receive().status, 401);
    EXPECT_TRUE(client.isEnded());
}

TEST_F(ConnectionTest, refusalOfALargeBodyReachesAClientThatIsStillSending) {
    start({.bodyBytes = 1000});
    auto client = connect();
    client.send(client.post("/connector/v1/Eval", std::string(4'000'000, ' ')));
    EXPECT_EQ(client.receive().status, 413);
}

TEST_F(ConnectionTest, slowClientsAreCutOffAndNoOthers) {
    start({.headTime = 100ms, .bodyTime = 100ms, .idleTime = 100ms});
    auto unfinished = connect();
    const std::string whole = evalOf(unfinished, "never");
    for (const std::string& bytes :
         {std::string(), std::string("POST / HTTP/1.1\r\nHo"), whole.substr(0, whole.size() - 1)}) {
        auto client = connect();
        client.send(bytes);
        EXPECT_TRUE(client.isEnded()) << bytes;
        EXPECT_EQ(get("/healthz").status, 200);
    }
    auto dripping = connect();
    dripping.send(
        dripping.head("POST /cometd", "Content-Type: application/json\r\nContent-Length: 1000\r\n"));
    bool isOver = false;
    for (int i = 0; i < 200 && !isOver; ++i) isOver = !dripping.send(" ") || dripping.waitForMore(20ms);
    EXPECT_TRUE(isOver);
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

TEST_F(ConnectionTest, chunksWithoutEndAreRefusedBeforeAnyTokenIsShown) {
    start({.bodyBytes = 1000});
    const std::pair<std::string, int> cases[] = {
        {"800\r\n" + std::string(0x800, ' ') + "\r\n", 413},
        {"1;" + std::string(200'000, 'x'), 400},
        {"0\r\n" + repeated("a: b\r\n", 30'000), 400},
        {repeated("1;" + std::string(1000, 'x') + "\r\na\r\n", 200), 413},
    };
    for (const auto& [chunks, status] : cases) {
        auto client = connect();
        client.send(
            client.head("POST /cometd", "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n") +
            chunks);
        EXPECT_EQ(client.receive().status, status) << chunks.substr(0, 20);
        EXPECT_TRUE(client.isEnded());
    }
}

// What is in the chunk would be a request of its own for who takes the body to end elsewhere.
TEST_F(ConnectionTest, framingThatCanBeReadInTwoWaysEndsTheConnection) {
    start();
    const std::pair<std::string, std::string> cases[] = {
        {"HTTP/1.1", "Transfer-Encoding: gzip\r\n"},
        {"HTTP/1.1", "Transfer-Encoding: chunked, identity\r\n"},
        {"HTTP/1.1", "Transfer-Encoding: gzip, chunked\r\n"},
        {"HTTP/1.1", "Transfer-Encoding: identity\r\nTransfer-Encoding: chunked\r\n"},
        {"HTTP/1.1", "Transfer-Encoding: xchunked\r\nContent-Length: 5\r\n"},
        {"HTTP/1.0", "Transfer-Encoding: chunked\r\n"},
    };
    for (const auto& [version, headers] : cases) {
        auto client = connect();
        client.send("POST /cometd " + version + "\r\nHost: 127.0.0.1:" + std::to_string(gateway_->port()) +
                    "\r\nContent-Type: application/json\r\nConnection: keep-alive\r\n" + headers +
                    "\r\n0\r\n\r\n" + client.head("GET /healthz"));
        EXPECT_EQ(client.receive().status, 400) << headers;
        EXPECT_TRUE(client.isEnded()) << headers;
    }
}

TEST_F(ConnectionTest, clientThatTakesNoAnswerIsGivenUp) {
    start({.writeTime = 100ms});
    auto client = connect();
    client.send(evalOf(client, std::string(8'000'000, 'x')));
    EXPECT_TRUE(waitForConnections(1));
}

TEST_F(ConnectionTest, clientsThatGoAwayCostTheirRequestsOnly) {
    start({.connections = 3});
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

/// Clients of Bayeux over HTTP. But for the handshake they show their session alone.
class BayeuxConnectionTest : public ConnectionTest {
protected:
    static std::string head(const TestClient& client, std::size_t size) {
        return client.head("POST /cometd", "Content-Type: application/json\r\nContent-Length: " +
                                               std::to_string(size) + "\r\n");
    }
    static std::string post(const TestClient& client, const std::string& body) {
        return head(client, body.size()) + body;
    }
    /// The member that names a session whose token was in the handshake.
    std::string openSession(TestClient& client) const {
        client.send(post(client, R"([{"channel":"/meta/handshake","version":"1.0",
            "supportedConnectionTypes":["long-polling"],"ext":{"connector":{"token":")" +
                                     std::string(TestClient::token) + R"("}}}])"));
        const std::string reply = client.receive().body;
        return reply.substr(reply.find("\"clientId\":\""), 53);
    }
    static std::string connectRequest(const TestClient& client, const std::string& clientId) {
        return post(client,
                    R"([{"channel":"/meta/connect","connectionType":"long-polling",)" + clientId + "}]");
    }
    /// A client of "/a" with a connect that is held.
    std::string hold(TestClient& client) const {
        std::string clientId = openSession(client);
        client.send(post(client, R"([{"channel":"/meta/subscribe","subscription":"/a",)" + clientId + "}]"));
        EXPECT_NE(client.receive().body.find(R"("successful":true)"), std::string::npos);
        client.send(connectRequest(client, clientId));
        return clientId;
    }
    void publish() {
        connector::common::DataBuffer data;
        data.append("42");
        messages_.publish("/a", data).get();
    }
    /// The status of a large message with `before` and `after` around its data.
    int sendLarge(const std::string& before, const std::string& after) const {
        auto client = connect();
        client.send(post(client, R"([{"channel":"/a",)" + before + R"("data":")" + std::string(200'000, 'x') +
                                     '"' + after + "}]"));
        return client.receive().status;
    }
};

TEST_F(BayeuxConnectionTest, heldConnectIsAnsweredByADelivery) {
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

TEST_F(BayeuxConnectionTest, heldConnectIsReleasedWhenTheClientGoesAwayAndLosesNothing) {
    start();
    std::string clientId;
    {
        auto client = connect();
        clientId = hold(client);
    }
    ASSERT_TRUE(waitForConnections(1));
    publish();
    auto again = connect();
    again.send(connectRequest(again, clientId));
    const std::string answer = again.receive().body;
    EXPECT_NE(answer.find(R"({"channel":"/a","data":42})"), std::string::npos) << answer;
}

TEST_F(BayeuxConnectionTest, largeBodyNamesItsSessionAtTheBeginningOrIsOneOfAFew) {
    for (const std::ptrdiff_t permits : {0, 1}) {
        start({.unauthenticatedBytes = 1000, .unauthenticatedBodies = permits});
        auto client = connect();
        const std::string clientId = openSession(client);
        EXPECT_EQ(sendLarge(clientId + ",", ""), 200);
        EXPECT_EQ(sendLarge("", "," + clientId), permits == 0 ? 413 : 200);
        EXPECT_EQ(sendLarge(R"("clientId":"none",)", ""), 413);
        EXPECT_EQ(sendLarge("", "," + clientId), permits == 0 ? 413 : 200) << "the permit came back";
        if (permits == 1) continue;
        client.send(head(client, 10'000'000) + std::string(200'000, ' '));
        EXPECT_EQ(client.receive().status, 413) << "the rest has not come";
    }
}

TEST_F(ConnectionTest, unauthenticatedOnesGiveWayTheOldestFirstAndOthersDoNot) {
    start({.connections = 3});
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
    EXPECT_TRUE(waitForMetric("numora_connections_refused_total 1"));
}

TEST_F(ConnectionTest, someAreKeptForInterruptsAndForHealth) {
    start({.connections = 16});
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
