#include <gmock/gmock.h>

#include "zmq/IopubQueue.h"

namespace {

using namespace jupyter;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

Message text(const std::string& text, const std::string& parent = "{}", const std::string& name = "stdout") {
    return {.channel = Channel::Iopub,
            .header = R"({"msg_type":"stream"})",
            .parent = parent,
            .content = R"({"name":")" + name + R"(","text":")" + text + R"("})"};
}

Message other(std::size_t number) {
    return {.channel = Channel::Iopub,
            .header = R"({"msg_type":"display_data"})",
            .content = std::to_string(number)};
}

/// Its readers have room for so many messages; without losses all of them are waited for.
class FakeSocket : public IopubSocket {
public:
    bool trySend(const Message& message) override {
        if (isLossless && (isStuck || room == 0)) return false;
        isStuck = false;  // as sockets do: it gets nothing more until it reads
        if (room > 0) --room, received.push_back(message.content);
        return true;
    }
    void setLossless(bool value) override { isLossless = value; }

    std::size_t room = 1'000'000;  // of the one who reads
    bool isStuck = false;          // another one, who does not
    bool isLossless = true;
    std::vector<std::string> received;
};

class IopubQueueTest : public testing::Test {
protected:
    void runFor(std::chrono::milliseconds time) {
        for (const auto end = now_ + time; now_ < end; now_ += 1ms) queue_.send(now_);
    }

    FakeSocket socket_;
    IopubQueue queue_{socket_};
    IopubQueue::Time now_{};
};

TEST_F(IopubQueueTest, mergesWhatWaitsAndLosesNothingToASlowReader) {
    socket_.room = 0;
    for (const auto& message :
         {text("a"), text("b\\n"), text("c", "{}", "stderr"), text("d", "{}", "stderr"), other(1),
          text("e", "{}", "stderr"), text("f", "{\"msg_id\":\"2\"}", "stderr")}) {
        queue_.add(message);
        EXPECT_EQ(queue_.send(now_), now_ + 2ms);
    }
    for (int i = 0; i < 9; ++i) {
        runFor(9s);
        socket_.room = 1;
    }
    EXPECT_THAT(socket_.received,
                ElementsAre(R"({"name":"stdout","text":"ab\n"})", R"({"name":"stderr","text":"cd"})", "1",
                            R"({"name":"stderr","text":"e"})", R"({"name":"stderr","text":"f"})"));
    EXPECT_TRUE(queue_.isEmpty() && socket_.isLossless);
}

// One message beyond the room of a reader in a pause of the pace would be lost to it.
TEST_F(IopubQueueTest, goesOnWithoutTheOneWhoReadsNothingForTenSeconds) {
    constexpr std::size_t count = 20'000;
    socket_.isStuck = true;
    for (std::size_t i = 0; i < count; ++i) queue_.add(other(i));
    runFor(9'999ms);
    EXPECT_THAT(socket_.received, SizeIs(0));
    for (int i = 0; i < 1'000 && !queue_.isEmpty(); ++i) {
        socket_.room = 40;
        runFor(5ms);
    }
    EXPECT_THAT(socket_.received, SizeIs(count));
    EXPECT_TRUE(socket_.isLossless);
    // Later it reads some, and then no more: it has the old rights.
    socket_.isStuck = true;
    queue_.add(other(1));
    runFor(9'999ms);
    EXPECT_FALSE(queue_.isEmpty());
    runFor(2ms);
    EXPECT_TRUE(queue_.isEmpty());
    // What is too much to keep is not kept for so long.
    socket_.isStuck = true;
    Message large = other(1);
    large.buffers = {std::string(33'000'000, 'a')};
    for (std::size_t i = 0; i < 100; ++i) queue_.add(other(i));
    for (int i = 0; i < 3; ++i) queue_.add(large);
    socket_.received.clear();
    socket_.room = 1'000;
    runFor(1ms);
    EXPECT_THAT(socket_.received, SizeIs(101));
}

TEST_F(IopubQueueTest, givesUpTheOldestTextAloneAndSaysHowMuch) {
    socket_.room = 0;
    std::string piece;
    for (int i = 0; i < 10'000; ++i) piece += R"(é\n\\\ud83d\ude00)";  // 5 units
    std::size_t others = 0;
    EXPECT_TRUE(queue_.hasRoom());
    for (int i = 0; i < 60; ++i) {
        queue_.add(text(piece, "{}", i < 2 ? "stdout" : "stderr"));
        queue_.add(other(others++));
    }
    EXPECT_FALSE(queue_.hasRoom());
    socket_.room = 1'000;
    runFor(1ms);
    EXPECT_EQ(static_cast<std::size_t>(std::ranges::count_if(
                  socket_.received, [](const auto& content) { return content.size() < 5; })),
              others);
    std::size_t kept = 0;
    for (const auto& content : socket_.received) kept += content.size() > piece.size() ? 1 : 0;
    EXPECT_EQ(socket_.received.size(), 60 + others);
    EXPECT_GT(kept, 40U);
    EXPECT_LT(kept, 60U);
    EXPECT_THAT(socket_.received[0], HasSubstr("[50000 characters of output are lost here"));
    EXPECT_THAT(socket_.received.at(2 * (59 - kept)), HasSubstr(R"("stderr","text":"[50000 char)"));
    EXPECT_GT(socket_.received.at(2 * (60 - kept)).size(), piece.size());
    EXPECT_TRUE(queue_.hasRoom());
}

}  // namespace
