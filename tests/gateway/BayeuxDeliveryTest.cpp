#include <utility>

#include "BayeuxFixture.h"
#include "connector/common/RequestOrigin.h"

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string connectMessage =
    R"([{"channel":"/meta/connect","clientId":"$","connectionType":"websocket")";

std::string delivery(const std::string& channel, const std::string& data) {
    return R"({"channel":")" + channel + R"(","data":)" + data + "}";
}
/// An array of deliveries on "/a".
std::string frame(const std::vector<std::string>& data) {
    std::string text;
    for (const auto& one : data) text += (text.empty() ? "[" : ",") + delivery("/a", one);
    return text + "]";
}
/// The same and the reply to a connect.
std::string answer(const std::vector<std::string>& data, const std::string& members = "") {
    std::string text = data.empty() ? "[" : frame(data);
    if (!data.empty()) text.back() = ',';
    return text + R"({"channel":"/meta/connect","successful":true)" + members + "}]";
}
std::string ack(int number) { return R"(,"ext":{"ack":)" + std::to_string(number) + "}"; }

// ---- connects over HTTP ----

class BayeuxConnectTest : public BayeuxFixture {
protected:
    void SetUp() override { begin(); }
    void begin(const std::string& ext = "{}") {
        handshake(ext);
        subscribe("/a");
    }
    void publishNow(const std::string& data) {
        publish("/a", data);
        turn();
    }
    bool isKnown() {
        return ask(R"([{"channel":"/b","data":1,"clientId":"$"}])").find("402") == std::string::npos;
    }
};

TEST_F(BayeuxConnectTest, isHeldAsLongAsItsClientSaysOrTheServer) {
    const std::pair<std::string, std::chrono::milliseconds> cases[] = {
        {"", 25s},
        {R"({"timeout":100})", 100ms},
        {R"({"timeout":0})", 0ms},
        {R"({"timeout":-5})", 0ms},
        {R"({"timeout":1e300})", 25s},
        {R"({"timeout":"0","interval":7})", 25s}};
    for (const auto& [wish, hold] : cases) {
        const auto held = connect(wish.empty() ? "" : R"(,"advice":)" + wish);
        if (hold > 0ms) {
            pass(hold - 1ms);
            EXPECT_FALSE(held->answer) << wish;
            pass(1ms);
        }
        EXPECT_EQ(held->body(), answer({}, wish.empty() ? "" : "," + advice("retry"))) << wish;
    }
}

TEST_F(BayeuxConnectTest, givesWayToALaterOne) {
    const auto first = connect();
    const auto second = connect();
    ASSERT_TRUE(first->answer);
    EXPECT_EQ(first->answer->status, 408);
    EXPECT_EQ(first->body(), "[]");
    first->pending.reset();
    publishNow("1");
    EXPECT_EQ(second->body(), answer({"1"}));
}

TEST_F(BayeuxConnectTest, keepsWhatComesWhenItsClientHasGone) {
    const auto held = connect();
    pass(19s);
    held->pending.reset();
    publishNow("1");
    EXPECT_FALSE(held->answer);
    pass(19s);
    EXPECT_EQ(connect()->body(), answer({"1"}));
    connect()->pending.reset();
    pass(20s);
    EXPECT_FALSE(isKnown());
}

TEST_F(BayeuxConnectTest, deliversAgainWhatTheNetworkHasNotTaken) {
    const auto lost = connect();
    publishNow("1");
    EXPECT_EQ(lost->body(), answer({"1"}));
    lost->isLost = true;
    lost->pending.reset();
    turn();
    publish("/a", "2");
    {
        const auto second = connect();
        EXPECT_EQ(second->body(), answer({"1", "2"}));
        publish("/a", "3");
        // The second one is not written yet, and might still arrive.
        EXPECT_EQ(connect()->body(), answer({"3"}));
    }
    publish("/a", "4");
    EXPECT_EQ(connect()->body(), answer({"4"}));
}

TEST_F(BayeuxConnectTest, keepsTheSessionForAWhileAfterTheAnswerIsWritten) {
    const auto slow = connect();
    pass(25s);
    EXPECT_TRUE(slow->answer);
    pass(60s);  // it is being written
    slow->pending.reset();
    pass(20s - 1ms);
    EXPECT_TRUE(isKnown());  // a sign of life, from which the time begins anew
    pass(20s - 1ms);
    EXPECT_EQ(server_->sessions(), 1U);
    pass(1ms);
    EXPECT_EQ(server_->sessions(), 0U);
    EXPECT_EQ(messages_.metrics().openSessions, 0U);
    EXPECT_FALSE(isKnown());
}

TEST_F(BayeuxConnectTest, beganBehindAnotherMessageKeepsTheSessionNoLonger) {
    post(R"([{"channel":"/b","data":1},)" + connectMessage.substr(1) + "}]")->pending.reset();
    pass(20s);
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(BayeuxConnectTest, isAnsweredBeforeTheDisconnect) {
    const auto socket = openSocket();
    send(*socket, connectMessage + "}]");
    EXPECT_EQ(askSocket(*socket, R"([{"channel":"/meta/disconnect","clientId":"$"}])"),
              answer({}, "," + advice("none")) +
                  "\n"
                  R"([{"channel":"/meta/disconnect","successful":true}])");
    EXPECT_FALSE(socket->closeCode);
    pass(1s);
    EXPECT_EQ(socket->closeCode, 1000);
    EXPECT_FALSE(isKnown());
}

TEST_F(BayeuxConnectTest, learnsThatTheQueueHasOverflowed) {
    serve({.queueBytes = 100});
    begin();
    const auto held = connect();
    publish("/a", "1");  // all that comes in one turn of the loop goes into one answer
    publishNow('"' + std::string(100, 'x') + '"');
    const std::string lost =
        R"([{"channel":"/meta/connect","successful":false,"error":"402::unknown client",)" +
        advice("handshake") + "}]";
    EXPECT_EQ(held->body(), lost);
    EXPECT_EQ(connect()->body(), lost);
    EXPECT_EQ(server_->sessions(), 0U);
}

// ---- acknowledgements ----

class BayeuxAcknowledgeTest : public BayeuxConnectTest {
protected:
    void SetUp() override { begin(R"({"ack":true})"); }
};

TEST_F(BayeuxAcknowledgeTest, takesNoMoreThanOneAnswerHoldsFromTheQueue) {
    serve({.queueBytes = 300, .replyBytes = 100});
    begin(R"({"ack":true})");
    for (int i = 0; i < 9; ++i) publish("/a", "\"0123456789\"");
    const auto nextSize = [this] { return connect(ack(0))->body().size(); };
    const auto size = nextSize();
    EXPECT_LT(size, 200U);
    EXPECT_EQ(nextSize(), size);
    publish("/a", "\"0123456789\"");
    EXPECT_EQ(nextSize(), size);
    for (int i = 0; i < 9; ++i) publish("/a", "\"0123456789\"");  // too much
    EXPECT_THAT(connect(ack(0))->body(), HasSubstr("402::unknown client"));
}

TEST_F(BayeuxAcknowledgeTest, putsDeliveriesAndTheAnswerIntoOneFrame) {
    const auto socket = openSocket();
    send(*socket, connectMessage + ack(0) + "}]");
    publish("/a", "1");
    publishNow("2");
    EXPECT_EQ(socket->received(), answer({"1", "2"}, ack(1)));
    publishNow("3");
    EXPECT_EQ(socket->received(), "");
    const auto other = openSocket();
    socket->closed();
    EXPECT_EQ(askSocket(*other, connectMessage + ack(1) + "}]"), answer({"3"}, ack(2)));
    // That answer was lost.
    EXPECT_EQ(connect(ack(1))->body(), answer({"3"}, ack(3)));
    const auto held = connect(ack(3));
    pass(25s);
    EXPECT_EQ(held->body(), answer({}, ack(4)));
}

// Answers are lost on the way, connections are cut while a connect is held, and transports change.
TEST_F(BayeuxAcknowledgeTest, losesAndRepeatsNothingOfTenThousandMessages) {
    constexpr int count = 10'000;
    int published = 0, next = 0, lastBatch = 0, turns = 0;
    std::uint32_t random = 12'345;
    const auto roll = [&random](std::uint32_t sides) {
        random = random * 1'664'525 + 1'013'904'223;
        return (random >> 16) % sides;
    };
    const auto read = [&](const std::string& array) {
        for (const int number : numbersIn(array)) ASSERT_EQ(number, next++);
        lastBatch = ackIn(array).value_or(lastBatch);
    };
    while (next < count && !HasFatalFailure()) {
        ASSERT_LT(++turns, count);
        now_ += 50ms;
        for (auto more = roll(20); more > 0 && published < count; --more) {
            publish("/a", std::to_string(published++));
        }
        const bool isLost = roll(4) == 0;
        if (roll(2) == 0) {
            const auto request = connect(ack(lastBatch));
            if (roll(5) == 0) request->pending.reset();
            publish("/b", "0");
            turn();
            if (request->answer && request->answer->status == 200 && !isLost) read(request->body());
        } else {
            const auto socket = openSocket();
            send(*socket, connectMessage + ack(lastBatch) + "}]");
            if (roll(5) == 0) socket->closed();
            turn();
            if (!isLost) read(socket->received());
        }
    }
    EXPECT_EQ(next, count);
    EXPECT_GT(turns, 1'000);
}

// ---- WebSockets without acknowledgements ----

class BayeuxSocketTest : public BayeuxConnectTest {
protected:
    void SetUp() override { begin({}); }
    void begin(const gateway::bayeux::ServerOptions& options, const std::string& pattern = "/a") {
        serve(options);
        handshakeOn(*(socket_ = openSocket()));
        subscribe(pattern);
    }
    std::shared_ptr<WebSocket> socket_;
};

TEST_F(BayeuxSocketTest, getsDeliveriesAtOnceAndAnswersToConnectsInTheirTime) {
    send(*socket_, connectMessage + "}]");
    publishNow("1");
    EXPECT_EQ(socket_->received(), frame({"1"}));
    publish("/a", "2");
    publishNow("3");
    EXPECT_EQ(socket_->received(), frame({"2", "3"}));
    pass(25s);
    EXPECT_EQ(socket_->received(), answer({}));
    pass(19s);
    publishNow("4");
    EXPECT_EQ(socket_->received(), frame({"4"}));
    socket_->unsent = 1;  // the answer may not have reached the client yet
    pass(1s);
    EXPECT_EQ(server_->sessions(), 1U);
    socket_->unsent = 0;
    pass(20s);
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(BayeuxSocketTest, getsWhatIsTooMuchForOneFrameInSeveral) {
    begin({.replyBytes = 200});
    const std::string large = '"' + std::string(150, 'x') + '"';
    for (const auto& data : {std::string("1"), large, std::string("2")}) publish("/a", data);
    turn();
    EXPECT_EQ(socket_->received(), frame({"1"}) + "\n" + frame({large}) + "\n" + frame({"2"}));
}

TEST_F(BayeuxSocketTest, passesTheSessionOnToTheLatestSocketOrToHttp) {
    send(*socket_, connectMessage + "}]");
    const auto latest = openSocket();
    askSocket(*latest, R"([{"channel":"/b","data":1,"clientId":"$"}])");
    publishNow("1");
    EXPECT_EQ(socket_->received(), "");
    EXPECT_EQ(latest->received(), frame({"1"}));
    const auto held = connect();
    publishNow("2");
    EXPECT_EQ(held->body(), answer({"2"}));
    EXPECT_EQ(latest->received() + socket_->received(), "");  // later connects take the place of earlier ones
}

TEST_F(BayeuxSocketTest, leavesWhatItHasNoRoomForToAConnectOverHttp) {
    const auto held = connect();
    askSocket(*socket_, R"([{"channel":"/b","data":1,"clientId":"$"}])");
    socket_->unsent = std::size_t{1} << 20;
    publishNow("1");
    EXPECT_FALSE(held->answer);
    socket_->closed();
    turn();
    EXPECT_EQ(held->body(), answer({"1"}));
}

// What is published while the frames of one read are handled goes out together, once they all are.
TEST_F(BayeuxSocketTest, getsWhatTheFramesOfOneReadPublishInOneFrame) {
    const auto publisher = openSocket();
    handshakeOn(*publisher);
    const auto publishFrom = [&](const std::string& data) {
        server_->receive(publisher, withClient(R"([{"channel":"/a","clientId":"$","data":)" + data + "}]"));
        turn();
    };
    publishFrom("1");
    publishFrom("2");
    EXPECT_EQ(socket_->received(), "");
    publisher->endReadTurn();
    turn();
    EXPECT_EQ(socket_->received(), frame({"1", "2"}));
    publishFrom("3");
    pass(100ms);  // the turn lasts too long
    EXPECT_EQ(socket_->received(), frame({"3"}));
    publishFrom("4");
    publisher->closed();
    turn();
    EXPECT_EQ(socket_->received(), frame({"4"}));
}

TEST_F(BayeuxSocketTest, dropsAHeldConnectOfAClosedSocket) {
    send(*socket_, connectMessage + "}]");
    socket_->closed();
    pass(20s - 1ms);
    EXPECT_EQ(server_->sessions(), 1U);
    pass(1ms);
    EXPECT_EQ(server_->sessions(), 0U);
    EXPECT_EQ(socket_->received(), "");
}

TEST_F(BayeuxSocketTest, servesSeveralSessions) {
    handshakeOn(*socket_);
    subscribe("/a");
    publishNow("1");
    EXPECT_EQ(socket_->received(), frame({"1"}) + "\n" + frame({"1"}));
    askSocket(*socket_, R"([{"channel":"/meta/disconnect","clientId":"$"}])");
    pass(1s);
    EXPECT_FALSE(socket_->closeCode);
}

TEST_F(BayeuxSocketTest, leavesWhatASlowClientDoesNotTakeToTheRulesOfTheQueue) {
    const std::string output = "/eval/response/output";
    begin({.queueBytes = 200, .replyBytes = 100}, output);
    socket_->unsent = 100;
    for (int i = 0; i < 10; ++i) publish(output, std::to_string(i));
    turn();
    socket_->drained();
    turn();
    EXPECT_EQ(socket_->received(), "");  // not far enough
    socket_->unsent = 99;
    socket_->drained();
    turn();
    EXPECT_THAT(socket_->received(),
                AllOf(StartsWith(R"([{"channel":"/connector/dropped",)"), HasSubstr(delivery(output, "9")),
                      Not(HasSubstr(delivery(output, "0")))));
}

TEST_F(BayeuxSocketTest, isWaitedForAsLongAsItsConnectionTakesSomething) {
    const std::string output = "/eval/response/output";
    begin({.queueBytes = 800, .replyBytes = 100}, output);
    std::shared_ptr<connector::common::ClientPace> pace;
    const auto code = messages_.subscribe("/eval/request", [&](const auto& message) {
        pace = connector::common::RequestOrigin::of(*message.context)->pace;
    });
    send(*socket_, R"([{"channel":"/eval/request","clientId":"$","data":"1"}])");
    socket_->unsent = 100;
    for (int i = 0; i < 10; ++i) publish(output, "1");
    std::shared_ptr<Post> post;
    for (const bool isPolling : {false, true}) {
        if (isPolling) post = connect();
        now_ += 3s;
        EXPECT_FALSE(pace->isBehind());
        isPolling ? post->pending->progressed() : socket_->progressed();
        EXPECT_TRUE(pace->isBehind());
    }
}

}  // namespace
