#include <chrono>
#include <string>
#include <thread>

#include "InterpretersFixture.h"
#include "WebSocketClient.h"
#include "access/token.h"
#include "connector/json/escape.h"
#include "jupyter/wire/WebSocket.h"

namespace {

using testing::HasSubstr;

/// The kernel of the default interpreter.
class KernelSocketTest : public InterpretersFixture {
protected:
    static constexpr const char* v1 = "Sec-WebSocket-Protocol: other, v1.kernel.websocket.jupyter.org\r\n";

    std::string path() const {
        const auto kernels = get("/api/kernels").body;
        return "/api/kernels/" + kernels.substr(kernels.find("\"id\":\"") + 6, 36);
    }
    Socket open(const std::string& session, const std::string& headers = "",
                const std::string& token = TestClient::token) const {
        return {gateway_->port(), path() + "/channels?session_id=" + session + "&token=" + token, headers};
    }
    static jupyter::Message request(const std::string& type) {
        jupyter::Message message;
        message.header = R"({"msg_id":"of-)" + type + R"(","msg_type":")" + type +
                         R"(","session":"s","username":"","date":"","version":"5.3"})";
        return message;
    }
    static std::string text(const jupyter::Message& message) {
        return encoded(textFrame, jupyter::wire::encodeDefault(message).data);
    }
    /// What comes until, and with, a frame that has `end` in it.
    static std::string receiveUntil(Socket& socket, const std::string& end) {
        std::string received;
        while (received.find(end) == std::string::npos) {
            const auto frame = socket.receiveFrame();
            if (frame.opcode < 0) return received + " the connection ended";
            received += frame.payload;
        }
        return received;
    }
    bool waitForConnections(int count) const {
        const auto wanted = "\"connections\":" + std::to_string(count) + ",";
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (get(path()).body.find(wanted) == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline) return false;
        }
        return true;
    }
};

TEST_F(KernelSocketTest, speaksTheSubprotocolThatIsOfferedToEachOfSeveralFrontEnds) {
    start();
    auto plain = open("a");
    auto other = open("b", v1);
    EXPECT_EQ(open("c", "Sec-WebSocket-Protocol: other\r\n").response.header("sec-websocket-protocol"), "");
    EXPECT_EQ(plain.response.header("sec-websocket-protocol"), "");
    EXPECT_EQ(other.response.header("sec-websocket-protocol"), "v1.kernel.websocket.jupyter.org");
    ASSERT_TRUE(waitForConnections(2));
    plain.send(text(request("kernel_info_request")));
    const auto ofPlain = receiveUntil(plain, R"("idle")");
    EXPECT_THAT(ofPlain,
                testing::ContainsRegex(R"("busy".*"channel":"iopub".*kernel_info_reply.*"channel":"shell")"));
    const auto first = jupyter::wire::decodeV1(other.receiveFrame().payload);
    EXPECT_THAT(first.content, HasSubstr("busy"));
    EXPECT_EQ(first.parent, request("kernel_info_request").header);
    EXPECT_THAT(receiveUntil(other, R"("idle")"), testing::Not(HasSubstr("kernel_info_reply")));
    // It leaves alone what others use.
    other.send(encoded(binaryFrame, jupyter::wire::encodeV1(request("shutdown_request")).data));
    EXPECT_THAT(receiveUntil(other, R"("idle")"), HasSubstr(R"("restart":false)"));
    std::thread stopping([this] { gateway_->stop(); });
    for (auto* client : {&plain, &other}) {
        std::size_t code = 0;
        while (code == 0) {
            const auto frame = client->receiveFrame();
            code = frame.opcode < 0 ? 1 : frame.closeCode();
        }
        EXPECT_EQ(code, 1001U);
        client->close();
    }
    stopping.join();
}

TEST_F(KernelSocketTest, closesOneThatSendsWhatIsNoMessageAndNoOther) {
    const std::string another = "a-token-of-somebody-else";
    serve({.tokens = {{gateway::access::digestOf(another), {"default"}, {"use"}}}});
    auto good = open("good");
    EXPECT_EQ(open("a").closeCodeAfter(encoded(textFrame, "{}")), 1007U);
    EXPECT_EQ(open("a").closeCodeAfter(encoded(binaryFrame, "\xFF")), 1007U);
    EXPECT_EQ(open("a", v1).closeCodeAfter(text(request("kernel_info_request"))), 1007U);
    auto message = request("status");
    message.channel = jupyter::Channel::Iopub;
    EXPECT_EQ(open("a").closeCodeAfter(text(message)), 1007U);
    // One that opens another gives its place away for good.
    auto before = open("twice");
    ASSERT_TRUE(waitForConnections(2));
    auto after = open("twice");
    EXPECT_EQ(before.receiveFrame().closeCode(), 1000U);
    const auto thief = open("twice", "", another);
    ASSERT_TRUE(waitForConnections(3));
    good.send(text(request("kernel_info_request")));
    EXPECT_THAT(receiveUntil(good, R"("idle")"), HasSubstr("kernel_info_reply"));
    EXPECT_THAT(receiveUntil(after, R"("idle")"), HasSubstr("busy"));
}

TEST_F(KernelSocketTest, keepsWhatComesForAFrontEndThatIsAwayAndSaysWhatIsLost) {
    constexpr int pieces = 60;
    constexpr std::size_t pieceSize = 64 << 10;
    start();
    auto here = open("here");
    auto away = open("away");
    ASSERT_TRUE(waitForConnections(2));
    away.close();
    ASSERT_TRUE(waitForConnections(1));
    here.send(text(request("kernel_info_request")));
    receiveUntil(here, R"("idle")");
    const auto publish = [this](const std::string& channel, const std::string& json) {
        messages_.publish(channel, connector::common::DataBuffer(json)).get();
    };
    const std::string piece = connector::json::quoted(std::string(pieceSize, 'x'));
    for (int i = 0; i < pieces; ++i) {
        publish("/eval/response/output", piece);
        publish("/eventmgr/0/display",
                R"({"request":"","kind":"display","metadata":{},"data":{"text/plain":)" + piece + "}}");
    }
    publish("/eval/response/output", R"("the end")");
    EXPECT_GT(receiveUntil(here, "the end").size(), 2 * pieces * pieceSize);
    auto back = open("away");
    const auto received = receiveUntil(back, "the end");
    EXPECT_LT(received.size(), 4U << 20);
    EXPECT_GT(received.size(), 1U << 20);
    EXPECT_LT(received.find("bytes of output were lost"), received.find("xxxx"));
    EXPECT_LT(received.find(R"("idle")"), received.find("xxxx"));  // it had come before all that
}

TEST_F(KernelSocketTest, tellsOfARestartWhileItLastsAndOfAKernelThatCannotBeMade) {
    std::promise<void> restarted;
    wishes_.restart = restarted.get_future().share();
    serve();
    wishes_.isBroken = true;
    EXPECT_EQ(open("a").receiveFrame().closeCode(), 1011U);
    wishes_.isBroken = false;
    auto client = open("a");
    std::thread asking(
        [&] { EXPECT_EQ(InterpretersFixture::request("POST", path() + "/restart").status, 200); });
    receiveUntil(client, R"("restarting")");
    EXPECT_THAT(get(path()).body, HasSubstr(R"("execution_state":"restarting")"));
    restarted.set_value();
    asking.join();
    EXPECT_THAT(get(path()).body, HasSubstr(R"("execution_state":"idle")"));
}

}  // namespace
