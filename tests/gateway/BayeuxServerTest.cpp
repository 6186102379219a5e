#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BayeuxFixture.h"

namespace {

using namespace std::chrono_literals;
using connector::message_service::JsonMessage;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

const std::string fullAdvice =
    R"("advice":{"reconnect":"retry","interval":0,"timeout":25000,"maxInterval":20000})";
const std::string noneAdvice =
    R"("advice":{"reconnect":"none","interval":0,"timeout":25000,"maxInterval":20000})";
const std::string handshakeAdvice =
    R"("advice":{"reconnect":"handshake","interval":0,"timeout":25000,"maxInterval":20000})";

struct MessageCase {
    std::string name, message, reply;
};
std::string nameOf(const testing::TestParamInfo<MessageCase>& info) { return info.param.name; }

// ---- handshakes ----

class BayeuxHandshakeTest : public BayeuxFixture {};

TEST_F(BayeuxHandshakeTest, givesEachClientAnIdOfItsOwn) {
    const std::string message =
        R"({"id":"1","channel":"/meta/handshake","version":"1.0","minimumVersion":"0.9","advice":{},)"
        R"("supportedConnectionTypes":["in-process","websocket"],"ext":{"ack":true}})";
    const auto reply = ask("[" + message + "]");
    client_ = clientIdIn(reply);
    EXPECT_THAT(client_, MatchesRegex("[0-9a-f]{40}"));
    EXPECT_EQ(reply, withClient(R"([{"channel":"/meta/handshake","id":"1","successful":true,"version":"1.0",)"
                                R"("clientId":"$","supportedConnectionTypes":["websocket","long-polling"],)" +
                                fullAdvice + R"(,"ext":{"ack":true}}])"));
    EXPECT_NE(clientIdIn(ask(message)), client_);  // no array around it
    EXPECT_EQ(server_->sessions(), 2U);
}

TEST_F(BayeuxHandshakeTest, makesTheOthersInItsArrayVoid) {
    handshake();
    const auto reply = ask(R"([{"channel":"/chat","data":1,"clientId":"$"},{"channel":"/meta/handshake",)"
                           R"("version":"1.0","supportedConnectionTypes":["long-polling"]}])");
    EXPECT_THAT(reply, Not(HasSubstr("/chat")));
    EXPECT_NE(clientIdIn(reply), "");
}

TEST_F(BayeuxHandshakeTest, takesTheTokenOfStrangersFromTheExtension) {
    peer_.isAuthenticated = false;
    handshake(R"({"connector":{"token":"sesame"}})");
    EXPECT_EQ(client_.size(), 40U);
    for (const auto* ext : {"{}", "null", R"({"connector":{"token":"Sesame"}})", R"({"connector":"sesame"})",
                            R"({"connector":{"token":null}})"}) {
        handshake(ext);
        EXPECT_EQ(client_, "") << ext;
    }
}

class BayeuxRefusedHandshakeTest : public BayeuxFixture, public testing::WithParamInterface<MessageCase> {};

TEST_P(BayeuxRefusedHandshakeTest, saysWhyAndWhatToDo) {
    EXPECT_EQ(ask(R"([{"channel":"/meta/handshake",)" + GetParam().message + "}]"),
              R"([{"channel":"/meta/handshake","successful":false,"error":)" + GetParam().reply + "," +
                  noneAdvice + "}]");
    EXPECT_EQ(server_->sessions(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, BayeuxRefusedHandshakeTest,
    testing::Values(MessageCase{"Version", R"("version":"2.0","supportedConnectionTypes":["websocket"])",
                                R"("400::the version must be 1.0")"},
                    MessageCase{"NoVersion", R"("supportedConnectionTypes":["websocket"])",
                                R"("400::the version must be 1.0")"},
                    MessageCase{"NoCommonType",
                                R"("version":"1.0","supportedConnectionTypes":["eventsource",7])",
                                R"("301::no common connection type")"},
                    MessageCase{"NoTypes", R"("version":"1.0","supportedConnectionTypes":"websocket")",
                                R"("301::no common connection type")"}),
    nameOf);

// ---- what a session answers at once ----

class BayeuxMessageTest : public BayeuxFixture, public testing::WithParamInterface<MessageCase> {
protected:
    void SetUp() override { handshake(); }
};

TEST_P(BayeuxMessageTest, isAnswered) {
    EXPECT_EQ(ask("[{" + GetParam().message + R"(,"clientId":"$"}])"), "[{" + GetParam().reply + "}]");
}

TEST_P(BayeuxMessageTest, isAnsweredTheSameOnASocket) {
    const auto socket = openSocket();
    EXPECT_EQ(askSocket(*socket, "[{" + GetParam().message + R"(,"clientId":"$"}])"),
              "[{" + GetParam().reply + "}]");
}

INSTANTIATE_TEST_SUITE_P(
    Meta, BayeuxMessageTest,
    testing::Values(
        MessageCase{
            "ConnectToLearnThatItIsOnline",
            R"("channel":"/meta/connect","connectionType":"websocket","id":"2","advice":{"timeout":0})",
            R"("channel":"/meta/connect","id":"2","successful":true,)" + fullAdvice},
        MessageCase{
            "ConnectOfUnknownType", R"("channel":"/meta/connect","connectionType":"smoke")",
            R"("channel":"/meta/connect","successful":false,"error":"301::no common connection type",)" +
                noneAdvice},
        MessageCase{"Disconnect", R"("channel":"/meta/disconnect","id":5)",
                    R"("channel":"/meta/disconnect","id":5,"successful":true)"},
        MessageCase{
            "UnknownMeta", R"("channel":"/meta/dance","data":1)",
            R"("channel":"/meta/dance","successful":false,"error":"404:/meta/dance:unknown channel")"},
        MessageCase{"NoChannel", R"("id":null)",
                    R"("channel":"","id":null,"successful":false,"error":"400::missing channel")"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Ids, BayeuxMessageTest,
    testing::Values(MessageCase{"Number", R"("channel":"/a","data":1,"id":12345678901234)",
                                R"("channel":"/a","id":12345678901234,"successful":true)"},
                    MessageCase{"Negative", R"("channel":"/a","data":1,"id":-1.5)",
                                R"("channel":"/a","id":-1.5,"successful":true)"},
                    MessageCase{"TextOfANumber", R"("channel":"/a","data":1,"id":"007")",
                                R"("channel":"/a","id":"007","successful":true)"},
                    MessageCase{"Structure", R"("channel":"/a","data":1,"id":{"a":[true,""]})",
                                R"("channel":"/a","id":{"a":[true,""]},"successful":true)"},
                    MessageCase{"Quotes", R"("channel":"/a","data":1,"id":"\"}\\")",
                                R"("channel":"/a","id":"\"}\\","successful":true)"}),
    nameOf);

const std::string noNumber = R"("ext":{"connector":{"seq":0}})";  // so far no message has one
const std::string badName = R"(,"successful":false,"error":"405::bad channel name","subscription":)";

INSTANTIATE_TEST_SUITE_P(
    Subscriptions, BayeuxMessageTest,
    testing::Values(
        MessageCase{"One", R"("channel":"/meta/subscribe","subscription":"/a")",
                    R"("channel":"/meta/subscribe","successful":true,"subscription":"/a",)" + noNumber},
        MessageCase{
            "Several", R"("channel":"/meta/subscribe","subscription":["/a","/b/*","/**","/a"])",
            R"("channel":"/meta/subscribe","successful":true,"subscription":["/a","/b/*","/**","/a"],)" +
                noNumber},
        MessageCase{"Service", R"("channel":"/meta/subscribe","subscription":"/service/connector/v1/Eval")",
                    R"("channel":"/meta/subscribe","successful":true,)"
                    R"("subscription":"/service/connector/v1/Eval",)" +
                        noNumber},
        MessageCase{"UnsubscribeFromUnknown", R"("channel":"/meta/unsubscribe","subscription":["/a"])",
                    R"("channel":"/meta/unsubscribe","successful":true,"subscription":["/a"])"},
        MessageCase{"Meta", R"("channel":"/meta/subscribe","subscription":"/meta/**")",
                    R"("channel":"/meta/subscribe","successful":false,"error":"403:/meta/**:denied",)"
                    R"("subscription":"/meta/**")"},
        MessageCase{
            "NoSuchInterpreter", R"("channel":"/meta/subscribe","subscription":["/a","/eventmgr/77/x"])",
            R"("channel":"/meta/subscribe","successful":false,)"
            R"("error":"404:/eventmgr/77/x:no such interpreter","subscription":["/a","/eventmgr/77/x"])"},
        MessageCase{"Missing", R"("channel":"/meta/subscribe")",
                    R"("channel":"/meta/subscribe","successful":false,"error":"400::missing subscription")"},
        MessageCase{"None", R"("channel":"/meta/subscribe","subscription":[])",
                    R"("channel":"/meta/subscribe","successful":false,"error":"400::missing subscription",)"
                    R"("subscription":[])"},
        MessageCase{"NoText", R"("channel":"/meta/subscribe","subscription":[7])",
                    R"("channel":"/meta/subscribe")" + badName + "[7]"},
        MessageCase{"Dot", R"("channel":"/meta/subscribe","subscription":"/eventmgr/0/a.b")",
                    R"("channel":"/meta/subscribe")" + badName + R"("/eventmgr/0/a.b")"},
        MessageCase{"WildcardInside", R"("channel":"/meta/subscribe","subscription":"/a/*/b")",
                    R"("channel":"/meta/subscribe")" + badName + R"("/a/*/b")"},
        MessageCase{"TooManySegments",
                    R"("channel":"/meta/subscribe","subscription":"/1/2/3/4/5/6/7/8/9/0/1/2/3/4/5/6/7")",
                    R"("channel":"/meta/subscribe")" + badName + R"("/1/2/3/4/5/6/7/8/9/0/1/2/3/4/5/6/7")"},
        MessageCase{"TooLong",
                    R"("channel":"/meta/subscribe","subscription":"/)" + std::string(255, 'a') + '"',
                    R"("channel":"/meta/subscribe")" + badName + "\"/" + std::string(255, 'a') + '"'}),
    nameOf);

MessageCase publishCase(std::string name, const std::string& channel, const std::string& error) {
    return {
        std::move(name), R"("channel":")" + channel + R"(","data":null)",
        R"("channel":")" + channel +
            (error.empty() ? R"(","successful":true)" : R"(","successful":false,"error":")" + error + '"')};
}

INSTANTIATE_TEST_SUITE_P(
    Publishes, BayeuxMessageTest,
    testing::Values(publishCase("Chat", "/chat/1", ""), publishCase("EvalRequest", "/eval/request", ""),
                    publishCase("LooksLikeTheServers", "/eval/responses", ""),
                    publishCase("Output", "/eval/response/output", "403:/eval/response/output:denied"),
                    publishCase("Responses", "/eval/response", "403:/eval/response:denied"),
                    publishCase("Event", "/eventmgr/0/x", "403:/eventmgr/0/x:denied"),
                    publishCase("Notice", "/connector/dropped", "403:/connector/dropped:denied"),
                    publishCase("Pattern", "/a/*", "405:/a/*:bad channel name"),
                    publishCase("NoName", "a b", "405::bad channel name"),
                    publishCase("NoService", "/service", "405::bad channel name"),
                    MessageCase{"NoData", R"("channel":"/a")",
                                R"("channel":"/a","successful":false,"error":"400::missing data")"}),
    nameOf);

// ---- envelopes ----

struct EnvelopeCase {
    std::string name, text;
    int status, closeCode;
};
class BayeuxEnvelopeTest : public BayeuxFixture, public testing::WithParamInterface<EnvelopeCase> {};

TEST_P(BayeuxEnvelopeTest, isRefused) {
    serve({.depth = 4, .messagesPerArray = 2, .values = 8});
    const auto answer = post(GetParam().text)->answer;
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, GetParam().status);
    EXPECT_THAT(answer->body, MatchesRegex(R"(\{"error":".+"\})"));
    if (GetParam().closeCode == 0) return;
    const auto socket = openSocket();
    send(*socket, GetParam().text);
    EXPECT_EQ(socket->closeCode, GetParam().closeCode);
    send(*socket, GetParam().text);  // on the way already
}

INSTANTIATE_TEST_SUITE_P(
    Texts, BayeuxEnvelopeTest,
    testing::Values(EnvelopeCase{"Nothing", "", 400, 1007}, EnvelopeCase{"NoJson", "[{]", 400, 1007},
                    EnvelopeCase{"Text", R"("a")", 400, 1007}, EnvelopeCase{"Numbers", "[{},1]", 400, 1007},
                    EnvelopeCase{"Empty", "[]", 400, 0}, EnvelopeCase{"TooMany", "[{},{},{}]", 413, 1008},
                    EnvelopeCase{"TooManyValues", R"([{"a":[1,2,3,4,5,6]}])", 413, 1009},
                    EnvelopeCase{"TooDeep", R"([{"a":[[[]]]}])", 400, 1007},
                    EnvelopeCase{"NoUtf8", "[{\"a\":\"\xFF\"}]", 400, 1007}),
    [](const auto& info) { return info.param.name; });

// ---- the rest ----

class BayeuxServerTest : public BayeuxFixture {};

TEST_F(BayeuxServerTest, answersAnEmptyFrameWithOne) {
    const auto socket = openSocket();
    EXPECT_EQ(askSocket(*socket, " [] "), "[]");
}

TEST_F(BayeuxServerTest, knowsNoClientsButItsOwn) {
    client_ = std::string(40, 'a');
    const std::string unknown = R"(","successful":false,"error":"402::unknown client")";
    EXPECT_EQ(ask(R"([{"channel":"/meta/subscribe","clientId":"$"},{"channel":"/a","data":1}])"),
              R"([{"channel":"/meta/subscribe)" + unknown + R"(},{"channel":"/a)" + unknown + "}]");
    EXPECT_EQ(connect()->body(), R"([{"channel":"/meta/connect)" + unknown + "," + handshakeAdvice + "}]");
}

TEST_F(BayeuxServerTest, takesMessagesOfAClientFromItsOwnPeersOnly) {
    const auto isKnown = [this](const Peer& peer) {
        peer_ = peer;
        return ask(R"([{"channel":"/a","clientId":"$","data":1}])").find("402") == std::string::npos;
    };
    peer_ = {.address = "10.0.0.1", .isAuthenticated = true, .origin = "https://a.example"};
    handshake();
    EXPECT_TRUE(isKnown({.address = "10.0.0.1", .origin = "https://a.example"}));
    EXPECT_TRUE(isKnown({.address = "10.0.0.1"}));
    EXPECT_TRUE(isKnown({.address = "10.0.0.2", .isAuthenticated = true}));
    EXPECT_FALSE(isKnown({.address = "10.0.0.2", .origin = "https://a.example"}));
    EXPECT_FALSE(isKnown({.address = "10.0.0.1", .origin = "https://b.example"}));
}

TEST_F(BayeuxServerTest, answersEveryMessageOfAnArrayAlsoOfSeveralClients) {
    handshake();
    const auto other = client_;
    handshake();
    const auto socket = openSocket();
    EXPECT_EQ(askSocket(*socket, R"([{"channel":"/a","data":1,"id":1,"clientId":"$"},)"
                                 R"({"channel":"/meta/connect","connectionType":"websocket","clientId":"$"},)"
                                 R"({"channel":"/b","data":1,"id":2,"clientId":")" +
                                     other + R"("},{"channel":"/c","data":1,"id":3,"clientId":"$"}])"),
              R"([{"channel":"/a","id":1,"successful":true},{"channel":"/meta/connect","successful":true},)"
              R"({"channel":"/b","id":2,"successful":true},{"channel":"/c","id":3,"successful":true}])");
}

TEST_F(BayeuxServerTest, subscribesToAllNamesOfAMessageOrNone) {
    handshake();
    ask(R"([{"channel":"/meta/subscribe","clientId":"$","subscription":["/a","/b","/meta/x"]}])");
    publish("/a", "1");
    EXPECT_FALSE(connect()->answer);
    ask(R"([{"channel":"/meta/subscribe","clientId":"$","subscription":["/a","/b"]}])");
    ask(R"([{"channel":"/meta/unsubscribe","clientId":"$","subscription":["/b","/c"]}])");
    publish("/b", "2");
    publish("/a", "3");
    EXPECT_EQ(connect()->body(),
              R"([{"channel":"/a","data":3},{"channel":"/meta/connect","successful":true}])");
}

TEST_F(BayeuxServerTest, publishesWhatAClientSendsAndNothingOfItsCredentials) {
    std::string seen;
    const auto token = messages_.subscribe("/a/**", [&](const JsonMessage& message) {
        seen += message.channel + message.data + message.context->getOr<std::string>("clientType", "none");
    });
    handshake(R"({"connector":{"clientType":"console"}})");
    subscribe("/a/**");
    subscribe("/**");
    ask(R"([{"channel":"/a/b","clientId":"$","id":"7","data":{ "b" : [1, 2.5,"é<"] },)"
        R"("ext":{"connector":{"token":"sesame"}}}])");
    ask(R"([{"channel":"/a/c","clientId":"$","data":{"data":"xyz"},"ext":{"binary":{"x":1}}}])");
    EXPECT_EQ(connect()->body(), R"([{"channel":"/a/b","data":{"b":[1,2.5,"\u00e9\u003c"]}},)"
                                 R"({"channel":"/a/c","data":{"data":"xyz"},"ext":{"binary":{}}},)"
                                 R"({"channel":"/meta/connect","successful":true}])");
    EXPECT_EQ(seen, "/a/b{\"b\":[1,2.5,\"\xC3\xA9\\u003c\"]}console/a/c{\"data\":\"xyz\"}console");
}

TEST_F(BayeuxServerTest, deliversWhatIsKeptToAClientThatComesBack) {
    for (const auto* data : {"1", "2", "3"}) publish("/logged/a", data);
    handshake();
    const std::string subscribe =
        R"([{"channel":"/meta/subscribe","clientId":"$","subscription":"/logged/*")";
    ask(subscribe + R"(,"ext":{"connector":{"after":2}}}])");
    publish("/logged/b", "4");
    EXPECT_EQ(connect()->body(), R"([{"channel":"/logged/a","data":3,"ext":{"connector":{"seq":3}}},)"
                                 R"({"channel":"/logged/b","data":4,"ext":{"connector":{"seq":4}}},)"
                                 R"({"channel":"/meta/connect","successful":true}])");
    handshake();
    EXPECT_THAT(ask(subscribe + "}]"), HasSubstr(R"("ext":{"connector":{"seq":4}})"));
    EXPECT_FALSE(connect()->answer);
}

TEST_F(BayeuxServerTest, answersInAsciiOverHttpOnly) {
    handshake();
    subscribe("/a");
    publish("/a", "\"\xC3\xA9\xF0\x9F\x98\x80\xFF\"");
    EXPECT_THAT(connect()->body(), HasSubstr(R"("data":"\u00e9\ud83d\ude00\ufffd")"));
    const auto socket = openSocket();
    handshakeOn(*socket);
    subscribe("/a");
    publish("/a", "\"\xC3\xA9\"");
    turn();
    EXPECT_THAT(socket->received(), HasSubstr("\xC3\xA9"));
}

TEST_F(BayeuxServerTest, deliversOnNoChannelThatClientsCannotTake) {
    handshake();
    subscribe("/**");
    const auto held = connect();
    publish("/eventmgr/0/a.b", "1");
    turn();
    EXPECT_FALSE(held->answer);
    publish("/a.b/c", "2");
    publish("/c", "3");
    turn();
    EXPECT_EQ(held->body(), R"([{"channel":"/c","data":3},{"channel":"/meta/connect","successful":true}])");
}

TEST_F(BayeuxServerTest, stopsWithAnAnswerToEveryHeldConnect) {
    handshake();
    const auto held = connect();
    const auto socket = openSocket();
    handshakeOn(*socket);
    askSocket(*socket,
              R"([{"channel":"/meta/connect","id":"9","clientId":"$","connectionType":"websocket"}])");
    const auto idle = openSocket();
    server_->stop();
    turn();
    const std::string reply =
        R"("successful":false,"error":"503::shutting down","advice":{"reconnect":"retry",)"
        R"("interval":1000,"timeout":25000,"maxInterval":20000}}])";
    EXPECT_EQ(held->body(), R"([{"channel":"/meta/connect",)" + reply);
    EXPECT_EQ(socket->received(), R"([{"channel":"/meta/connect","id":"9",)" + reply);
    EXPECT_EQ(socket->closeCode, 1001);
    EXPECT_EQ(idle->closeCode, 1001);
    EXPECT_EQ(openSocket()->closeCode, 1001);
    EXPECT_EQ(post("[{}]")->answer->status, 503);
    EXPECT_EQ(messages_.metrics().openSessions, 0U);
}

// ---- limits ----

class BayeuxLimitTest : public BayeuxFixture {};

TEST_F(BayeuxLimitTest, countsHandshakesAndSessionsOfAPeer) {
    serve({.sessionsPerPeer = 3, .handshakesPerSecond = 2});
    const auto reply = [this] {
        return ask(
            R"([{"channel":"/meta/handshake","version":"1.0","supportedConnectionTypes":["websocket"]}])");
    };
    EXPECT_NE(clientIdIn(reply()), "");
    peer_.isAuthenticated = false;
    for (int i = 0; i < 10; ++i) reply();  // of a peer that does not know the token, so they count apart
    EXPECT_THAT(reply(), HasSubstr("429::too many handshakes"));
    peer_.isAuthenticated = true;
    client_ = clientIdIn(reply());
    EXPECT_THAT(
        reply(),
        HasSubstr(R"("error":"429::too many handshakes","advice":{"reconnect":"retry","interval":1)"));
    const auto other = peer_.address;
    peer_.address = "192.0.2.2";
    EXPECT_NE(clientIdIn(reply()), "");
    peer_.address = other;
    pass(500ms);
    EXPECT_NE(clientIdIn(reply()), "");
    pass(500ms);
    EXPECT_THAT(reply(),
                HasSubstr(R"("error":"429::too many sessions","advice":{"reconnect":"retry","interval":1)"));
    ask(R"([{"channel":"/meta/disconnect","clientId":"$"}])");
    pass(500ms);
    EXPECT_NE(clientIdIn(reply()), "");
    EXPECT_EQ(server_->sessions(), 4U);
    EXPECT_EQ(messages_.metrics().openSessions, 4U);
}

TEST_F(BayeuxLimitTest, countsSubscriptions) {
    serve({.subscriptionsPerSession = 3});
    handshake();
    const auto subscribes = [this](const std::string& names) {
        const auto reply =
            ask(R"([{"channel":"/meta/subscribe","clientId":"$","subscription":)" + names + "}]");
        return reply.find("429::too many subscriptions") == std::string::npos;
    };
    EXPECT_TRUE(subscribes(R"(["/a","/b"])"));
    EXPECT_FALSE(subscribes(R"(["/c","/d"])"));
    EXPECT_TRUE(subscribes(R"(["/c","/b","/service/x"])"));
    EXPECT_FALSE(subscribes(R"("/d")"));
    ask(R"([{"channel":"/meta/unsubscribe","clientId":"$","subscription":"/a"}])");
    EXPECT_TRUE(subscribes(R"("/d")"));
}

TEST_F(BayeuxLimitTest, letsStrangersSendSmallFramesOnly) {
    peer_.isAuthenticated = false;
    serve({.unauthenticatedValues = 30, .frameBytes = 1000, .unauthenticatedBytes = 300});
    const auto stranger = openSocket();
    EXPECT_EQ(stranger->maxFrameBytes(), 300U);
    send(*stranger, std::string(301, ' '));
    EXPECT_EQ(stranger->closeCode, 1009);
    const auto known = openSocket();
    handshakeOn(*known, R"({"connector":{"token":"sesame"}})");
    EXPECT_EQ(known->maxFrameBytes(), 1000U);
    EXPECT_EQ(askSocket(*known, std::string(998, ' ') + "[]"), "[]");
    send(*known, std::string(1001, ' '));
    EXPECT_EQ(known->closeCode, 1009);
    // Who has shown the token over HTTP comes with the id that it was given for.
    const auto moved = openSocket();
    const std::string manyValues = R"("x":[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]}])";
    askSocket(*moved, R"([{"channel":"/a","data":1,"clientId":"$",)" + manyValues);
    EXPECT_EQ(moved->maxFrameBytes(), 1000U);
    const auto other = openSocket();
    send(*other, R"([{"channel":"/a","data":1,"clientId":"wrong",)" + manyValues);
    EXPECT_EQ(other->closeCode, 1009);
}

TEST_F(BayeuxLimitTest, letsStrangersSendSmallBodiesOnly) {
    peer_.isAuthenticated = false;
    serve({.unauthenticatedBytes = 300});
    handshake(R"({"connector":{"token":"sesame"}})");
    const auto publishWith = [this](const std::string& members) {
        return post(R"([{"channel":"/a","data":")" + std::string(300, 'x') + '"' + members + "}]")
            ->answer->status;
    };
    EXPECT_EQ(publishWith(R"(, "clientId" : "$")"), 200);
    EXPECT_EQ(publishWith(R"(,"clientId":"wrong")"), 413);
    EXPECT_EQ(publishWith(R"(,"clientId":)"), 413);
    EXPECT_EQ(publishWith(""), 413);
}

// An interval is only advice, so connects that come too fast are answered later.
TEST_F(BayeuxLimitTest, slowsConnectsDown) {
    serve({.connectsPerSecond = 5});
    handshake();
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(connect(R"(,"advice":{"timeout":0})")->answer);
    const auto sixth = connect(R"(,"advice":{"timeout":0})");
    EXPECT_FALSE(sixth->answer);
    pass(100ms);
    EXPECT_FALSE(sixth->answer);
    pass(100ms);
    EXPECT_TRUE(sixth->answer);
}

}  // namespace
