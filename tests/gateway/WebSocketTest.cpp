#include <chrono>
#include <string>
#include <thread>

#include <boost/beast/core/buffers_to_string.hpp>

#include "GatewayFixture.h"
#include "http/OutgoingFrames.h"

namespace {

using namespace std::chrono_literals;

constexpr char textFrame = 1;
constexpr char binaryFrame = 2;
constexpr char closeFrame = 8;
constexpr char pingFrame = 9;
constexpr char pongFrame = 10;

struct Frame {
    int opcode = -1;  ///< -1 when the connection ended
    std::string payload;
    int closeCode() const {
        return opcode == closeFrame && payload.size() >= 2
                   ? static_cast<unsigned char>(payload[0]) * 256 + static_cast<unsigned char>(payload[1])
                   : 0;
    }
};

std::string encoded(char opcode, const std::string& payload) {
    std::string bytes{static_cast<char>(0x80 | opcode)};
    const int bits = payload.size() < 126 ? 0 : payload.size() < 65536 ? 16 : 64;
    const std::size_t length = bits == 0 ? payload.size() : bits == 16 ? 126 : 127;
    bytes.push_back(static_cast<char>(0x80 | length));
    for (int shift = bits - 8; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<char>(payload.size() >> shift));
    }
    return bytes + std::string(4, '\0') + payload;  // the mask changes nothing
}

std::size_t numberIn(const std::string& bytes) {
    std::size_t number = 0;
    for (const char byte : bytes) number = number * 256 + static_cast<unsigned char>(byte);
    return number;
}

class WebSocketTest : public GatewayFixture {
protected:
    static constexpr const char* handshake =
        R"([{"channel":"/meta/handshake","version":"1.0","supportedConnectionTypes":["websocket"],"id":"h"}])";

    static std::string handshakeWithToken() {
        std::string text = handshake;
        return text.insert(text.size() - 2,
                           R"(,"ext":{"connector":{"token":")" + std::string(TestClient::token) + R"("}})");
    }
    /// Asks for a WebSocket with the token, or without when it is empty.
    TestResponse upgrade(TestClient& client, const std::string& headers = "",
                         std::string_view token = TestClient::token) const {
        client.send(client.head("GET /cometd?token=" + std::string(token),
                                "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
                                    headers));
        return client.receive();
    }
    static Frame receive(TestClient& client) {
        const std::string head = client.receiveBytes(2);
        if (head.size() < 2) return {};
        std::size_t size = static_cast<unsigned char>(head[1]);
        if (size >= 126) size = numberIn(client.receiveBytes(size == 126 ? 2 : 8));
        return {head[0] & 15, client.receiveBytes(size)};
    }
    static std::string askFor(TestClient& client, const std::string& text) {
        client.send(encoded(textFrame, text));
        return receive(client).payload;
    }
    static std::string clientIdIn(const std::string& reply) {
        const auto at = reply.find("\"clientId\":\"") + 12;
        return reply.substr(at, reply.find('"', at) - at);
    }
};

TEST_F(WebSocketTest, carriesBayeuxMessagesAlsoLargeOnesInOrder) {
    start();
    auto client = connect();
    const auto response = upgrade(client, "Sec-WebSocket-Protocol: bayeux, other\r\n");
    EXPECT_EQ(response.status, 101);
    EXPECT_EQ(response.header("sec-websocket-accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
    EXPECT_EQ(response.header("sec-websocket-protocol"), "bayeux");
    EXPECT_EQ(response.header("server"), "numora");
    EXPECT_EQ(askFor(client, "[]"), "[]");
    const std::string id = clientIdIn(askFor(client, handshake));
    EXPECT_EQ(id.size(), 40U);
    std::string code;
    while (code.size() < 3'000'000) code += std::to_string(code.size()) + " ";
    client.send(encoded(textFrame, R"([{"channel":"/service/connector/v1/Eval","clientId":")" + id +
                                       R"(","id":"7","data":{"mcode":")" + code + R"("}}])"));
    std::string received;
    while (received.find("responseStr") == std::string::npos || !received.ends_with("}]")) {
        const Frame frame = receive(client);
        ASSERT_TRUE(frame.opcode == textFrame || frame.opcode == 0);
        received += frame.payload;
    }
    EXPECT_TRUE(
        received.starts_with(R"([{"channel":"/service/connector/v1/Eval","id":"7","successful":true)"));
    EXPECT_NE(received.find(code), std::string::npos);
}

TEST_F(WebSocketTest, isRefusedLikeAnyRequest) {
    start();
    auto foreign = connect();
    EXPECT_EQ(upgrade(foreign, "Origin: https://evil.example\r\n").status, 403);
    auto early = connect();
    early.send(early.head("GET /cometd",
                          "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                          "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n") +
               encoded(textFrame, "[]"));
    EXPECT_EQ(early.receive().status, 400);
    auto broken = connect();
    EXPECT_EQ(upgrade(broken, "Sec-WebSocket-Protocol: a\"b\r\n").header("sec-websocket-protocol"), "");
    auto elsewhere = connect();
    elsewhere.send(elsewhere.head("GET /healthz", "Connection: Upgrade\r\nUpgrade: websocket\r\n"));
    EXPECT_EQ(elsewhere.receive().status, 200);
}

TEST_F(WebSocketTest, takesTheTokenOfTheHandshakeAndClosesAfterAnyOtherFrame) {
    start();
    auto client = connect();
    upgrade(client, "", "");
    EXPECT_NE(askFor(client, handshakeWithToken()).find(R"("successful":true)"), std::string::npos);
    EXPECT_EQ(askFor(client, "[]"), "[]");
    for (const std::string frame : {handshake, R"([{"channel":"/a","clientId":"none","data":1}])", "[]"}) {
        auto unknown = connect();
        upgrade(unknown, "", "");
        EXPECT_EQ(askFor(unknown, frame).find(R"("successful":true)"), std::string::npos);
        EXPECT_EQ(receive(unknown).closeCode(), 1008) << frame;
    }
    auto post = connect();
    post.send(post.head("POST /cometd", "Content-Type: application/json\r\nContent-Length: " +
                                            std::to_string(std::string(handshake).size()) + "\r\n") +
              handshake);
    EXPECT_EQ(post.receive().status, 200);
    EXPECT_TRUE(post.isEnded());
}

TEST_F(WebSocketTest, endsWhenItDoesNotShowTheTokenInTime) {
    gateway::GatewayOptions options;
    options.limits.headTime = 500ms;
    start(std::move(options));
    auto authenticated = connect();
    upgrade(authenticated);
    auto late = connect();
    upgrade(late, "", "");
    askFor(late, handshakeWithToken());
    auto unknown = connect();
    upgrade(unknown, "", "");
    EXPECT_EQ(receive(unknown).closeCode(), 1008);
    EXPECT_EQ(askFor(authenticated, "[]"), "[]");
    EXPECT_EQ(askFor(late, "[]"), "[]");
}

TEST_F(WebSocketTest, largeFrameIsTakenOnceTheSessionIsKnown) {
    start();
    auto first = connect();
    upgrade(first, "", "");
    const std::string id = clientIdIn(askFor(first, handshakeWithToken()));
    auto next = connect();
    upgrade(next, "", "");
    askFor(next, R"([{"channel":"/meta/connect","connectionType":"websocket","clientId":")" + id +
                     R"(","advice":{"timeout":0}}])");
    const std::string reply =
        askFor(next, R"([{"channel":"/a","clientId":")" + id + R"(","id":"large","data":")" +
                         std::string(100'000, 'x') + R"("}])");
    EXPECT_NE(reply.find(R"("id":"large")"), std::string::npos) << reply;
}

TEST_F(WebSocketTest, clientThatTakesNoRepliesIsNotReadFromUntilItDoes) {
    start();
    auto client = connect();
    upgrade(client);
    const std::string frame = encoded(textFrame, R"([{"channel":"/meta/connect","clientId":"none","id":")" +
                                                     std::string(500'000, 'x') + R"("}])");
    constexpr std::size_t mostFrames = 80;
    std::string frames;
    for (std::size_t i = 0; i < mostFrames; ++i) frames += frame;
    const std::size_t sent = client.sendWhatIsTaken(frames);
    ASSERT_LT(sent, frames.size());
    const std::size_t whole = sent / frame.size();
    ASSERT_GT(whole, 0U);
    std::size_t received = 0;
    const auto receiveReplies = [&](std::size_t count) {
        while (received < count * 500'000) {
            const Frame part = receive(client);
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
    auto unknown = connect();
    upgrade(unknown, "", "");
    unknown.send(encoded(textFrame, std::string(70'000, ' ')));
    EXPECT_EQ(receive(unknown).closeCode(), 1009);
    auto binary = connect();
    upgrade(binary);
    binary.send(encoded(binaryFrame, "[]"));
    EXPECT_EQ(receive(binary).closeCode(), 1003);
    auto broken = connect();
    upgrade(broken);
    broken.send(encoded(textFrame, "\xFF"));
    EXPECT_EQ(receive(broken).closeCode(), 1007);
}

// In debug builds the library ends the process when it is made to read beside a close.
TEST_F(WebSocketTest, closesInTheMiddleOfMessagesInPieces) {
    start();
    const auto piece = [](char opcode, const std::string& payload) {
        std::string bytes = encoded(opcode, payload);
        bytes.front() = opcode;
        return bytes;
    };
    const std::string message =
        piece(textFrame, "[ ") + piece(0, "") + encoded(pingFrame, "x") + encoded(0, "]");
    for (int i = 0; i < 100; ++i) {
        auto client = connect();
        upgrade(client);
        client.send(encoded(textFrame, "x") + message + message);
        Frame frame = receive(client);
        while (frame.opcode == pongFrame) frame = receive(client);
        ASSERT_EQ(frame.closeCode(), 1007);
        client.send(encoded(closeFrame, "\x03\xEF"));
        EXPECT_TRUE(client.isEnded());
    }
}

TEST_F(WebSocketTest, answersPingsAndEndsAClientThatAnswersNone) {
    gateway::GatewayOptions options;
    options.limits.pingTime = 200ms;
    start(std::move(options));
    auto client = connect();
    upgrade(client);
    client.send(encoded(pingFrame, "x"));
    const Frame pong = receive(client);
    EXPECT_EQ(pong.opcode, pongFrame);
    EXPECT_EQ(pong.payload, "x");
    EXPECT_EQ(receive(client).opcode, pingFrame);
    EXPECT_EQ(receive(client).opcode, -1);
}

TEST_F(WebSocketTest, closesWhenTheServerStops) {
    start();
    auto client = connect();
    upgrade(client);
    askFor(client, handshake);
    std::thread stopping([this] { gateway_->stop(); });
    EXPECT_EQ(receive(client).closeCode(), 1001);
    client.close();
    stopping.join();
}

TEST(OutgoingFramesTest, joinsSmallArraysAndPutsRepliesFirst) {
    gateway::http::OutgoingFrames frames;
    const auto push = [&](std::string messages, bool isReply) {
        gateway::bayeux::MessageArray array;
        array.add(std::move(messages));
        frames.push(array, isReply);
    };
    push("1", false);
    push("2,3", false);
    push("", false);
    push(std::string(70'000, '4'), false);
    push("5", true);
    std::string taken;
    std::size_t bytes = 0;
    while (!frames.empty()) {
        const auto batch = frames.take();
        taken += batch.frame.text().substr(0, 8) + " ";
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
        for (slices.start(array); !slices.isAtEnd();) {
            const auto slice = boost::beast::buffers_to_string(slices.next(most));
            ASSERT_TRUE(!slice.empty() && slice.size() <= most);
            text += slice;
        }
        EXPECT_EQ(text, array.text());
    }
}

}  // namespace
