#include <thread>

#include <boost/beast/core/buffers_to_string.hpp>

#include "GatewayFixture.h"
#include "WebSocketClient.h"
#include "http/OutgoingFrames.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

class WebSocketTest : public GatewayFixture {
protected:
    Socket open(const std::string& headers = "") const {
        return {gateway_->port(), "/cometd?token=" + TestClient::token, headers};
    }
    Socket openUnknown() const { return {gateway_->port(), "/cometd"}; }
};

TEST_F(WebSocketTest, carriesBayeuxMessagesAlsoLargeOnesInOrder) {
    start();
    auto client = open("Sec-WebSocket-Protocol: bayeux, other\r\n");
    EXPECT_EQ(client.response.status, 101);
    EXPECT_EQ(client.response.header("sec-websocket-accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
    EXPECT_EQ(client.response.header("sec-websocket-protocol"), "bayeux");
    EXPECT_EQ(client.response.header("server"), "numora");
    EXPECT_EQ(client.askFor("[]"), "[]");
    const std::string begin = R"([{"channel":"/service/connector/v1/Eval",)";
    const std::string id = clientIdIn(client.askFor(handshake(false)));
    std::string code;
    while (code.size() < 3'000'000) code += std::to_string(code.size()) + " ";
    std::string received =
        client.askFor(begin + R"("id":"7","data":{"mcode":")" + code + R"("},"clientId":")" + id + R"("}])");
    while (received.find("responseStr") == std::string::npos || !received.ends_with("}]")) {
        const Frame frame = client.receiveFrame();
        ASSERT_TRUE(frame.opcode == textFrame || frame.opcode == 0);
        received += frame.payload;
    }
    EXPECT_TRUE(received.starts_with(begin + R"("id":"7","successful":true)"));
    EXPECT_NE(received.find(code), std::string::npos);
    std::thread stopping([this] { gateway_->stop(); });
    EXPECT_EQ(client.receiveFrame().closeCode(), 1001U);
    client.close();
    stopping.join();
}

TEST_F(WebSocketTest, isRefusedLikeAnyRequest) {
    start();
    EXPECT_EQ(open("Origin: https://evil.example\r\n").response.status, 403);
    EXPECT_EQ(open("Sec-WebSocket-Protocol: a\"b\r\n").response.header("sec-websocket-protocol"), "");
    auto client = connect();
    EXPECT_EQ(client.get("/healthz", "Connection: Upgrade\r\nUpgrade: websocket\r\n").status, 200);
    const auto early = client.head("GET /cometd", TestClient::upgrade) + encoded(textFrame, "[]");
    EXPECT_EQ(client.ask(early).status, 400);
}

TEST_F(WebSocketTest, takesTheTokenOfTheHandshakeAndClosesAfterAnyOtherFrame) {
    start();
    auto client = openUnknown();
    EXPECT_THAT(client.askFor(handshake(true)), HasSubstr(R"("successful":true)"));
    EXPECT_EQ(client.askFor("[]"), "[]");
    for (const std::string& frame :
         {handshake(false), std::string(R"([{"channel":"/a","clientId":"none","data":1}])"),
          std::string("[]")}) {
        auto unknown = openUnknown();
        EXPECT_THAT(unknown.askFor(frame), Not(HasSubstr(R"("successful":true)")));
        EXPECT_EQ(unknown.receiveFrame().closeCode(), 1008U) << frame;
    }
    auto post = connect();
    const std::string size = std::to_string(handshake(false).size());
    const auto head =
        post.head("POST /cometd", "Content-Type: application/json\r\nContent-Length: " + size + "\r\n");
    EXPECT_EQ(post.ask(head + handshake(false)).status, 200);
    EXPECT_TRUE(post.isEnded());
}

TEST_F(WebSocketTest, beginsNoSessionWithATokenThatIsGone) {
    start();
    Socket socket(gateway_->port(), "/cometd?token=" + TestClient::token);
    const std::string id = clientIdIn(socket.askFor(handshake(false)));
    gateway_->reload({.token = "another-token-of-the-tests"});
    EXPECT_THAT(socket.askFor(handshake(false)), HasSubstr("401"));
    EXPECT_THAT(
        socket.askFor(R"([{"channel":"/meta/subscribe","subscription":"/a","clientId":")" + id + R"("}])"),
        HasSubstr("\"successful\":true"));
}

TEST_F(WebSocketTest, endsWhenItDoesNotShowTheTokenInTime) {
    start({.limits = {.headTime = 500ms}});
    auto authenticated = open();
    auto late = openUnknown();
    late.askFor(handshake(true));
    EXPECT_EQ(openUnknown().receiveFrame().closeCode(), 1008U);
    EXPECT_EQ(authenticated.askFor("[]"), "[]");
    EXPECT_EQ(late.askFor("[]"), "[]");
}

TEST_F(WebSocketTest, largeFrameIsTakenOnceTheSessionIsKnown) {
    start();
    const std::string id = R"("clientId":")" + clientIdIn(openUnknown().askFor(handshake(true))) + '"';
    auto next = openUnknown();
    next.askFor(R"([{"channel":"/meta/connect","connectionType":"websocket","advice":{"timeout":0},)" + id +
                "}]");
    const std::string data = R"("data":")" + std::string(100'000, 'x') + '"';
    EXPECT_THAT(next.askFor(R"([{"channel":"/a","id":"large",)" + id + "," + data + "}]"),
                HasSubstr(R"("id":"large")"));
}

TEST_F(WebSocketTest, clientThatTakesNoRepliesIsNotReadFromUntilItDoes) {
    start();
    auto client = open();
    const std::string frame = encoded(textFrame, R"([{"channel":"/meta/connect","clientId":"none","id":")" +
                                                     std::string(500'000, 'x') + R"("}])");
    std::string frames;
    for (int i = 0; i < 80; ++i) frames += frame;
    const std::size_t sent = client.sendWhatIsTaken(frames);
    ASSERT_LT(sent, frames.size());
    const std::size_t whole = sent / frame.size();
    ASSERT_GT(whole, 0U);
    std::size_t received = 0;
    const auto receiveReplies = [&](std::size_t count) {
        while (received < count * 500'000) {
            const Frame part = client.receiveFrame();
            ASSERT_TRUE(part.opcode == textFrame || part.opcode == 0) << part.opcode;
            received += part.payload.size();
        }
    };
    receiveReplies(whole);
    ASSERT_TRUE(client.send(std::string_view(frames).substr(sent, (whole + 1) * frame.size() - sent)));
    receiveReplies(whole + 1);
}

TEST_F(WebSocketTest, closesOnWhatItDoesNotTake) {
    start();
    EXPECT_EQ(openUnknown().closeCodeAfter(encoded(textFrame, std::string(70'000, ' '))), 1009U);
    EXPECT_EQ(open().closeCodeAfter(encoded(binaryFrame, "[]")), 1003U);
    EXPECT_EQ(open().closeCodeAfter(encoded(textFrame, "\xFF")), 1007U);
}

// In debug builds the library ends the process when it is made to read beside a close.
TEST_F(WebSocketTest, closesInTheMiddleOfMessagesInPieces) {
    start();
    std::string first = encoded(textFrame, "[ "), next = encoded(0, "");
    first.front() = textFrame;
    next.front() = 0;
    const std::string message = first + next + encoded(pingFrame, "x") + encoded(0, "]");
    for (int i = 0; i < 100; ++i) {
        auto client = open();
        client.send(encoded(textFrame, "x") + message + message);
        Frame frame = client.receiveFrame();
        while (frame.opcode == pongFrame) frame = client.receiveFrame();
        ASSERT_EQ(frame.closeCode(), 1007U);
        client.send(encoded(closeFrame, "\x03\xEF"));
        EXPECT_TRUE(client.isEnded());
    }
}

TEST_F(WebSocketTest, answersPingsAndEndsAClientThatAnswersNone) {
    start({.limits = {.pingTime = 200ms}});
    auto client = open();
    client.send(encoded(pingFrame, "x"));
    const Frame pong = client.receiveFrame();
    EXPECT_EQ(pong.opcode, pongFrame);
    EXPECT_EQ(pong.payload, "x");
    EXPECT_EQ(client.receiveFrame().opcode, pingFrame);
    EXPECT_EQ(client.receiveFrame().opcode, -1);
}

TEST(OutgoingFramesTest, joinsSmallArraysAndPutsRepliesFirst) {
    gateway::http::OutgoingFrames frames;
    const auto push = [&](std::string messages, bool isReply) {
        gateway::bayeux::MessageArray array;
        array.add(std::move(messages));
        frames.push({.pieces = array, .isReply = isReply});
    };
    for (const char* small : {"1", "2,3", ""}) push(small, false);
    push(std::string(70'000, '4'), false);
    push("5", true);
    std::string taken;
    std::size_t bytes = 0;
    while (!frames.empty()) {
        const auto batch = frames.take();
        taken += batch.frame.pieces.text().substr(0, 8) + " ";
        bytes += batch.queuedBytes;
    }
    EXPECT_EQ(taken, "[5] [1,2,3] [] [4444444 ");
    EXPECT_EQ(bytes, 3U + 5U + 2U + 70'002U + 3U);
}

TEST(FrameSlicesTest, cutTheTextWhereverABoundIs) {
    gateway::bayeux::MessageArray array;
    array.add(std::string("{}"));
    array.add("[" + std::string(10'000, '1') + "]");
    for (int i = 0; i < 40; ++i) array.add('"' + std::string(3'000, static_cast<char>('a' + i % 26)) + '"');
    for (const std::size_t most : {1U, 7U, 10'000U, 61'440U, 262'144U}) {
        gateway::http::FrameSlices slices;
        std::string text;
        for (slices.start({.pieces = array}); !slices.isAtEnd();) {
            const auto slice = boost::beast::buffers_to_string(slices.next(most));
            ASSERT_TRUE(!slice.empty() && slice.size() <= most);
            text += slice;
        }
        EXPECT_EQ(text, array.text());
    }
}

}  // namespace
