#include <list>
#include <utility>

#include "GatewayFixture.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

const std::string json = "Content-Type: application/json\r\n";

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
        EXPECT_THAT(client.receive().body, HasSubstr("code " + std::to_string(i) + "."));
    }
    EXPECT_EQ(client.receive().header("connection"), "close");
    EXPECT_TRUE(client.isEnded());
}

TEST_F(ConnectionTest, takesARequestThatComesByteByByteAndAChunkedOne) {
    start();
    auto client = connect();
    for (const char byte : evalOf(client, "bytes")) client.send({&byte, 1});
    EXPECT_THAT(client.receive().body, HasSubstr("bytes"));
    const auto head = client.head("POST /cometd", json + "Transfer-Encoding: Chunked\r\n");
    EXPECT_EQ(client.ask(head + "1\r\n{\r\n1;a=b\r\n}\r\n0\r\nC: d\r\n\r\n").status, 200);
}

TEST_F(ConnectionTest, lettingTheClientGoOnComesBeforeTheBodyAndAfterTheCheck) {
    start();
    auto client = connect();
    const std::string whole = client.post("/connector/v1/Interrupt", "{}", "Expect: 100-continue\r\n");
    EXPECT_EQ(client.ask(whole.substr(0, whole.size() - 2)).status, 100);
    EXPECT_EQ(client.ask("{}").status, 200);
    const auto head = client.head("POST /messages", "Content-Length: 2\r\nExpect: 100-continue\r\n");
    EXPECT_EQ(client.ask(head).status, 401);
    EXPECT_TRUE(client.isEnded());
}

TEST_F(ConnectionTest, refusalOfALargeBodyReachesAClientThatIsStillSending) {
    start({.bodyBytes = 1000});
    EXPECT_EQ(post("/connector/v1/Eval", std::string(4'000'000, ' ')).status, 413);
}

TEST_F(ConnectionTest, slowClientsAreCutOffAndNoOthers) {
    start({.headTime = 100ms, .bodyTime = 100ms, .idleTime = 100ms});
    auto dripping = connect();
    std::string whole = evalOf(connect(), "never");
    whole.pop_back();
    for (const std::string& bytes : {std::string(), std::string("POST / HTTP/1.1\r\nHo"), whole}) {
        auto client = connect();
        client.send(bytes);
        EXPECT_TRUE(client.isEnded()) << bytes;
        EXPECT_EQ(get("/healthz").status, 200);
    }
    auto next = connect();
    next.send(next.head("POST /cometd", json + "Content-Length: 1000\r\n"));
    bool isOver = false;
    for (int i = 0; i < 200 && !isOver; ++i) isOver = !next.send(" ") || next.waitForMore(20ms);
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
        const auto head = client.head("POST /cometd", json + "Transfer-Encoding: chunked\r\n");
        EXPECT_EQ(client.ask(head + chunks).status, status) << chunks.substr(0, 20);
        EXPECT_TRUE(client.isEnded());
    }
}

// What is in the chunk would be a request of its own for who takes the body to end elsewhere.
TEST_F(ConnectionTest, framingThatCanBeReadInTwoWaysEndsTheConnection) {
    start();
    const std::string host = "\r\nHost: 127.0.0.1:" + std::to_string(gateway_->port()) + "\r\n";
    for (const std::string headers :
         {"1\r\nTransfer-Encoding: gzip", "1\r\nTransfer-Encoding: chunked, identity",
          "1\r\nTransfer-Encoding: gzip, chunked",
          "1\r\nTransfer-Encoding: identity\r\nTransfer-Encoding: chunked",
          "1\r\nTransfer-Encoding: xchunked\r\nContent-Length: 5", "0\r\nTransfer-Encoding: chunked"}) {
        auto client = connect();
        const auto head = "POST /cometd HTTP/1." + headers + host + json + "Connection: keep-alive\r\n\r\n";
        EXPECT_EQ(client.ask(head + "0\r\n\r\n" + client.head("GET /healthz")).status, 400) << headers;
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
    EXPECT_THAT(client.receive().body, HasSubstr("ended"));
    EXPECT_THAT(client.receive().body, HasSubstr("half"));
    EXPECT_TRUE(client.isEnded());
}

/// Clients of Bayeux over HTTP. But for the handshake they show their session alone.
class BayeuxConnectionTest : public ConnectionTest {
protected:
    static std::string head(const TestClient& client, std::size_t size) {
        return client.head("POST /cometd", json + "Content-Length: " + std::to_string(size) + "\r\n");
    }
    static std::string bodyOf(TestClient& client, const std::string& body) {
        return client.ask(head(client, body.size()) + body).body;
    }
    /// The member that names a session whose token was in the handshake.
    static std::string openSession(TestClient& client) {
        return R"("clientId":")" + clientIdIn(bodyOf(client, handshake(true))) + '"';
    }
    static std::string connectRequest(const TestClient& client, const std::string& clientId) {
        const std::string body =
            R"([{"channel":"/meta/connect","connectionType":"long-polling",)" + clientId + "}]";
        return head(client, body.size()) + body;
    }
    /// The status of a large message with `before` and `after` around its data.
    int sendLarge(const std::string& before, const std::string& after) const {
        auto client = connect();
        const std::string data = R"("data":")" + std::string(200'000, 'x') + '"';
        const std::string body = R"([{"channel":"/a",)" + before + data + after + "}]";
        return client.ask(head(client, body.size()) + body).status;
    }
};

TEST_F(BayeuxConnectionTest, heldConnectIsAnsweredByADeliveryOrReleasedWhenTheClientGoesAway) {
    start();
    std::string clientId;
    {
        auto client = connect();
        clientId = openSession(client);
        bodyOf(client, R"([{"channel":"/meta/subscribe","subscription":"/a",)" + clientId + "}]");
        // The second is on the same connection, so it is taken once the connect has been answered.
        client.send(connectRequest(client, clientId) + client.head("GET /healthz"));
        messages_.publish("/a", connector::common::DataBuffer("42")).get();
        const auto answer = client.receive();
        EXPECT_EQ(answer.header("content-type"), "application/json;charset=UTF-8");
        EXPECT_THAT(answer.body, HasSubstr(R"({"channel":"/a","data":42})"));
        EXPECT_EQ(client.receive().body, R"({"status":"ok"})");
        client.send(connectRequest(client, clientId));
    }
    ASSERT_TRUE(waitForConnections(1));
    messages_.publish("/a", connector::common::DataBuffer("43")).get();
    auto again = connect();
    EXPECT_THAT(again.ask(connectRequest(again, clientId)).body, HasSubstr(R"({"channel":"/a","data":43})"));
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
        const auto begun = head(client, 10'000'000) + std::string(200'000, ' ');
        EXPECT_EQ(client.ask(begun).status, 413) << "the rest has not come";
    }
}

TEST_F(ConnectionTest, unauthenticatedOnesGiveWayTheOldestFirstAndOthersDoNot) {
    start({.connections = 3});
    auto known = connect();
    EXPECT_EQ(known.ask(evalOf(known, "1")).status, 200);
    auto first = connect();
    auto second = connect();
    EXPECT_EQ(second.get("/healthz").status, 200);
    EXPECT_EQ(get("/metrics").status, 200);
    EXPECT_TRUE(first.isEnded());
    for (auto* client : {&known, &second}) EXPECT_EQ(client->get("/healthz").status, 200);
    EXPECT_TRUE(waitForMetric("numora_connections_refused_total 1"));
}

TEST_F(ConnectionTest, someAreKeptForInterruptsAndForHealth) {
    start({.connections = 16});
    std::list<TestClient> clients;
    for (int i = 0; i < 15; ++i) {
        auto& client = clients.emplace_back(gateway_->port());
        EXPECT_EQ(client.ask(evalOf(client, "1")).status, 200);
    }
    const auto refusal = post("/connector/v1/Eval", R"({"mcode":"1"})");
    EXPECT_EQ(refusal.status, 503);
    EXPECT_EQ(refusal.header("retry-after"), "1");
    EXPECT_EQ(post("/connector/v1/Interrupt", "{}").status, 200);
    EXPECT_EQ(get("/healthz").status, 200);
    clients.clear();
    EXPECT_TRUE(waitForConnections(1));
    EXPECT_EQ(post("/connector/v1/Eval", R"({"mcode":"1"})").status, 200);
}

}  // namespace
