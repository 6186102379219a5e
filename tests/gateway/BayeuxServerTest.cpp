#include <tuple>
#include <utility>

#include "BayeuxFixture.h"

namespace {

using namespace std::chrono_literals;
using connector::message_service::JsonMessage;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

const std::string connected = R"({"channel":"/meta/connect","successful":true}])";

// ---- handshakes ----

class BayeuxHandshakeTest : public BayeuxFixture {};

TEST_F(BayeuxHandshakeTest, givesEachClientAnIdOfItsOwn) {
    const std::string message =
        R"({"id":"1","channel":"/meta/handshake","version":"1.0","minimumVersion":"0.9","advice":{},)"
        R"("supportedConnectionTypes":["in-process","websocket"],"ext":{"ack":true}})";
    const auto reply = ask("[" + message + "]");
    client_ = clientIdIn(reply);
    const auto server = reply.substr(reply.find(R"("server":)"), 47);  // with a UUID
    EXPECT_THAT(client_, MatchesRegex("[0-9a-f]{40}"));
    EXPECT_EQ(reply,
              withClient(R"([{"channel":"/meta/handshake","id":"1","successful":true,"version":"1.0",)"
                         R"("clientId":"$","supportedConnectionTypes":["websocket","long-polling"],)" +
                         advice("retry") + R"(,"ext":{"connector":{)" + server + R"(},"ack":true}}])"));
    const auto other = ask(message);  // no array around it
    EXPECT_NE(clientIdIn(other), client_);
    EXPECT_THAT(other, HasSubstr(server));
    EXPECT_EQ(server_->sessions(), 2U);
}

TEST_F(BayeuxHandshakeTest, ignoresTheOthersInItsArray) {
    handshake();
    const auto reply = ask(R"([{"channel":"/chat","data":1,"clientId":"$"},)" + handshakeText().substr(1));
    EXPECT_THAT(reply, Not(HasSubstr("/chat")));
    EXPECT_NE(clientIdIn(reply), "");
}

TEST_F(BayeuxHandshakeTest, takesTheTokenFromTheExtension) {
    peer_.isAuthenticated = false;
    handshake(R"({"connector":{"token":"sesame"}})");
    EXPECT_EQ(client_.size(), 40U);
    for (const auto* ext : {"{}", "null", R"({"connector":{"token":"Sesame"}})", R"({"connector":"sesame"})",
                            R"({"connector":{"token":null}})"}) {
        handshake(ext);
        EXPECT_EQ(client_, "") << ext;
    }
}

TEST_F(BayeuxHandshakeTest, saysWhyItIsRefusedAndWhatToDo) {
    const auto refused = [this](const std::string& members) {
        return ask(R"([{"channel":"/meta/handshake",)" + members + "}]");
    };
    const auto reply = [](const std::string& error) {
        return R"([{"channel":"/meta/handshake","successful":false,"error":")" + error + "\"," +
               advice("none") + "}]";
    };
    EXPECT_EQ(refused(R"("version":"2.0","supportedConnectionTypes":["websocket"])"),
              reply("400::the version must be 1.0"));
    EXPECT_EQ(refused(R"("version":"1.0","supportedConnectionTypes":["eventsource",7])"),
              reply("301::no common connection type"));
    const std::string good =
        R"("version":"1.0","supportedConnectionTypes":["websocket"],"ext":{"connector":)";
    EXPECT_EQ(refused(good + "[]}"), reply("400::ext.connector must be an object"));
    EXPECT_EQ(refused(good + R"({"clientType":1}})"),
              reply("400::ext.connector.clientType must be a string"));
    EXPECT_EQ(server_->sessions(), 0U);
}

// ---- what a session answers at once ----

class BayeuxMessageTest : public BayeuxFixture {
protected:
    using Errors = std::vector<std::pair<std::string, std::string>>;
    void SetUp() override { handshake(); }
    /// The members of the reply to a message with these members.
    std::string reply(const std::string& members) {
        const auto array = ask("[{" + members + R"(,"clientId":"$"}])");
        return array.substr(2, array.size() - 4);
    }
    static std::string refused(const std::string& error) {
        return R"("successful":false,"error":")" + error + '"';
    }
};

TEST_F(BayeuxMessageTest, isAnsweredWithItsId) {
    const std::string connect = R"("channel":"/meta/connect",)";
    EXPECT_EQ(reply(connect + R"("connectionType":"websocket","id":"2","advice":{"timeout":0})"),
              connect + R"("id":"2","successful":true,)" + advice("retry"));
    EXPECT_EQ(reply(connect + R"("connectionType":"smoke")"),
              connect + refused("301::no common connection type") + "," + advice("none"));
    EXPECT_EQ(reply(R"("channel":"/meta/dance","data":1)"),
              R"("channel":"/meta/dance",)" + refused("404:/meta/dance:unknown channel"));
    EXPECT_EQ(reply(R"("id":null)"), R"("channel":"","id":null,)" + refused("400::missing channel"));
    for (const std::string id : {"12345678901234", R"({"a":[true,-1.5,"\"}\\"]})"}) {
        EXPECT_EQ(reply(R"("channel":"/a","data":1,"id":)" + id),
                  R"("channel":"/a","id":)" + id + R"(,"successful":true)");
    }
    EXPECT_EQ(reply(R"("channel":"/meta/disconnect","id":5)"),
              R"("channel":"/meta/disconnect","id":5,"successful":true)");
}

TEST_F(BayeuxMessageTest, thatSubscribesIsAnsweredWithItsNames) {
    const std::string begin = R"("channel":"/meta/subscribe",)", missing = "400::missing subscription";
    for (const std::string names : {R"("/a")", R"(["/a","/b/*","/**","/a"])", R"("/service/x/y")"}) {
        EXPECT_EQ(
            reply(begin + R"("subscription":)" + names),
            begin + R"("successful":true,"subscription":)" + names + R"(,"ext":{"connector":{"seq":0}})");
    }
    const std::string badName = "405::bad channel name";
    for (const auto& [names, error] :
         Errors{{"[]", missing},
                {R"("/meta/**")", "403:/meta/**:denied"},
                {R"(["/a","/eventmgr/77/x"])", "404:/eventmgr/77/x:no such interpreter"},
                {"[7]", badName},
                {R"("/eventmgr/0/a.b")", badName},
                {R"("/a/*/b")", badName},
                {R"("/1/2/3/4/5/6/7/8/9/0/1/2/3/4/5/6/7")", badName},
                {"\"/" + std::string(255, 'a') + '"', badName}}) {
        EXPECT_EQ(reply(begin + R"("subscription":)" + names),
                  begin + refused(error) + R"(,"subscription":)" + names);
    }
    EXPECT_EQ(reply(R"("channel":"/meta/subscribe")"), begin + refused(missing));
    EXPECT_THAT(reply(begin + R"("subscription":"/a","ext":{"connector":{"after":"x"}})"),
                testing::HasSubstr("400::ext.connector.after must be an integer of at least 0"));
    const std::string unsubscribe = R"("channel":"/meta/unsubscribe",)", unknown = R"("subscription":["/z"])";
    EXPECT_EQ(reply(unsubscribe + unknown), unsubscribe + R"("successful":true,)" + unknown);
}

TEST_F(BayeuxMessageTest, thatPublishesIsRefusedWhereClientsMayNot) {
    const auto published = [this](const std::string& channel) {
        const auto begin = R"("channel":")" + channel + "\",";
        return reply(begin + R"("data":null)").substr(begin.size());
    };
    for (const auto* channel : {"/chat/1", "/eval/responses"}) {
        EXPECT_EQ(published(channel), R"("successful":true)") << channel;
    }
    for (const std::string channel : {"/eval/response", "/eventmgr/0/x", "/connector/dropped"}) {
        EXPECT_EQ(published(channel), refused("403:" + channel + ":denied"));
    }
    EXPECT_EQ(published("/a/*"), refused("405:/a/*:bad channel name"));
    EXPECT_EQ(published("a b"), refused("405::bad channel name"));
    EXPECT_EQ(published("/service"), refused("405::bad channel name"));
    EXPECT_EQ(reply(R"("channel":"/a")"), R"("channel":"/a",)" + refused("400:/a:missing data"));
}

// ---- the rest ----

class BayeuxServerTest : public BayeuxFixture {};

TEST_F(BayeuxServerTest, refusesWhatIsNotAnArrayOfMessagesOrTooLarge) {
    using Case = std::tuple<std::string, int, int>;
    serve({.depth = 4, .messagesPerArray = 2, .values = 8});
    for (const auto& [text, status, closeCode] :
         {Case{"", 400, 1007}, Case{"[{]", 400, 1007}, Case{R"("a")", 400, 1007}, Case{"[{},1]", 400, 1007},
          Case{"[]", 400, 0}, Case{"[{},{},{}]", 413, 1008}, Case{R"([{"a":[1,2,3,4,5,6]}])", 413, 1009},
          Case{R"([{"a":[[[]]]}])", 400, 1007}, Case{"[{\"a\":\"\xFF\"}]", 400, 1007}}) {
        const auto answer = post(text)->answer;
        ASSERT_TRUE(answer) << text;
        EXPECT_EQ(answer->status, status) << text;
        EXPECT_THAT(answer->body, MatchesRegex(R"(\{"error":".+"\})"));
        const auto socket = openSocket();
        send(*socket, text);
        EXPECT_EQ(socket->closeCode.value_or(0), closeCode) << text;
        send(*socket, text);  // on the way already
        EXPECT_EQ(socket->received(), closeCode == 0 ? "[]\n[]" : "");
    }
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
    EXPECT_EQ(connect()->body(), R"([{"channel":"/a","data":3},)" + connected);
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
                                 R"({"channel":"/a/c","data":{"data":"xyz"},"ext":{"binary":{}}},)" +
                                     connected);
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
                                 R"({"channel":"/logged/b","data":4,"ext":{"connector":{"seq":4}}},)" +
                                     connected);
    handshake();
    EXPECT_THAT(ask(subscribe + "}]"), HasSubstr(R"("ext":{"connector":{"seq":4}})"));
    EXPECT_FALSE(connect()->answer);
}

TEST_F(BayeuxServerTest, deliversOnNoChannelThatClientsCannotTake) {
    handshake();
    subscribe("/**");
    const auto held = connect();
    for (const auto* channel : {"/eventmgr/0/a.b", "/a.b/c"}) publish(channel, "1");
    turn();
    EXPECT_FALSE(held->answer);
    publish("/c", "3");
    turn();
    EXPECT_EQ(held->body(), R"([{"channel":"/c","data":3},)" + connected);
}

TEST_F(BayeuxServerTest, stopsWithAnAnswerToEveryHeldConnect) {
    handshake();
    const auto held = connect();
    const auto socket = openSocket();
    handshakeOn(*socket);
    send(*socket, R"([{"channel":"/meta/connect","id":"9","clientId":"$","connectionType":"websocket"}])");
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
    const auto reply = [this] { return ask(handshakeText()); };
    const auto refused = [](const std::string& error) {
        return HasSubstr(R"("error":"429::too many )" + error +
                         R"(","advice":{"reconnect":"retry","interval":1)");
    };
    EXPECT_NE(clientIdIn(reply()), "");
    peer_.isAuthenticated = false;
    for (int i = 0; i < 10; ++i) reply();  // of a peer that does not know the token, so they count apart
    EXPECT_THAT(reply(), refused("handshakes"));
    peer_.isAuthenticated = true;
    client_ = clientIdIn(reply());
    EXPECT_THAT(reply(), refused("handshakes"));
    const auto other = std::exchange(peer_.address, "192.0.2.2");
    EXPECT_NE(clientIdIn(reply()), "");
    peer_.address = other;
    pass(500ms);
    EXPECT_NE(clientIdIn(reply()), "");
    pass(500ms);
    EXPECT_THAT(reply(), refused("sessions"));
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

TEST_F(BayeuxLimitTest, letsUnknownClientsSendLittle) {
    peer_.isAuthenticated = false;
    serve({.unauthenticatedValues = 30, .frameBytes = 1000, .unauthenticatedBytes = 300});
    const auto unknown = openSocket();
    EXPECT_EQ(unknown->maxFrameBytes(), 300U);
    send(*unknown, std::string(301, ' '));
    EXPECT_EQ(unknown->closeCode, 1009);
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
    const auto statusWith = [this](const std::string& members) {
        const auto data = R"("data":")" + std::string(300, 'x') + '"';
        return post(R"([{"channel":"/a",)" + data + members + "}]")->answer->status;
    };
    EXPECT_EQ(statusWith(R"(, "clientId" : "$")"), 200);
    for (const auto* members : {R"(,"clientId":"wrong")", R"(,"clientId":)", ""}) {
        EXPECT_EQ(statusWith(members), 413) << members;
    }
}

// An interval is only advice, so connects that come too fast are answered later.
TEST_F(BayeuxLimitTest, slowsConnectsDown) {
    serve({.connectsPerSecond = 5});
    handshake();
    const std::string atOnce = R"(,"advice":{"timeout":0})";
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(connect(atOnce)->answer);
    const auto sixth = connect(atOnce);
    pass(100ms);
    EXPECT_FALSE(sixth->answer);
    pass(100ms);
    EXPECT_TRUE(sixth->answer);
}

}  // namespace
