#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jupyter/relay/Relay.h"
#include "jupyter/wire/WebSocket.h"

namespace {

using jupyter::Channel;
using jupyter::Message;
using testing::ElementsAre;
using testing::HasSubstr;

/// Both ways of a relay, and the thread that it lives on.
class Ends : public jupyter::Executor, public jupyter::Outlet {
public:
    void post(std::function<void()> task) override { task(); }
    void postAfter(std::chrono::milliseconds, std::function<void()>) override {}
    void send(Message message) override { sent.push_back(std::move(message)); }
    bool hasRoom() const override { return isRoomy; }

    std::vector<Message> sent;
    bool isRoomy = true;
    bool isFull = false;  // no more goes to the server
    int reads = 0;
    std::uint64_t last = 0;  // that has gone to the server
    jupyter::ServerSocketListener* server = nullptr;
    std::string end = "none";
};

class FakeSocket : public jupyter::ServerSocket {
public:
    explicit FakeSocket(Ends& ends) : ends_(ends) {}
    void start(jupyter::ServerSocketListener& listener) override { ends_.server = &listener; }
    bool send(std::uint64_t number, std::string) override {
        if (!ends_.isFull) ends_.last = number;
        return !ends_.isFull;
    }
    void readOn() override { ++ends_.reads; }

private:
    Ends& ends_;
};

class RelayTest : public testing::Test {
protected:
    static std::string header(const std::string& id, const std::string& type) {
        return R"({"msg_id":")" + id + R"(","msg_type":")" + type + R"("})";
    }
    void ask(const std::string& id, const std::string& type = "execute_request") {
        relay.receive({.channel = Channel::Shell, .route = {"of " + id}, .header = header(id, type)});
    }
    void serverSays(Channel channel, const std::string& type, const std::string& parent) {
        const Message message{
            .channel = channel, .header = header("x", type), .parent = header(parent, "execute_request")};
        ends.server->received(jupyter::wire::encodeV1(message).data);
    }
    /// What has been sent since the last call, as type and identity if it is for one.
    std::vector<std::string> told() {
        std::vector<std::string> all;
        for (const Message& message : std::exchange(ends.sent, {})) {
            const auto begin = message.header.find(R"("msg_type":")") + 12;
            const auto type = message.header.substr(begin, message.header.find('"', begin) - begin);
            all.push_back(type + (message.route.empty() ? "" : " " + message.route[0]));
        }
        return all;
    }

    Ends ends;
    jupyter::Relay relay{ends,
                         ends,
                         std::make_unique<FakeSocket>(ends),
                         {.release = [](bool, const auto& done) { done(""); },
                          .ended = [this](const std::string& reason) { ends.end = reason; }}};
};

TEST_F(RelayTest, asksForInputAndRepliesWhereTheRequestCameFromAndRepliesOnce) {
    ask("a");
    ask("b");
    serverSays(Channel::Stdin, "input_request", "a");
    for (const char* client : {"of b", "of a"}) {
        relay.receive({.channel = Channel::Stdin, .route = {client}, .header = header("i", "input_reply")});
    }
    EXPECT_EQ(ends.last, 3);
    serverSays(Channel::Shell, "execute_reply", "b");
    serverSays(Channel::Stdin, "input_request", "a");
    serverSays(Channel::Shell, "execute_reply", "a");
    serverSays(Channel::Shell, "execute_reply", "a");
    serverSays(Channel::Stdin, "input_request", "a");
    serverSays(Channel::Iopub, "stream", "somebody's");
    EXPECT_THAT(told(), ElementsAre("input_request of a", "execute_reply of b", "input_request of a",
                                    "execute_reply of a", "stream"));
}

TEST_F(RelayTest, failsWhatMayHaveArrivedWhenTheConnectionBreaksAndNothingElse) {
    for (const char* id : {"arrived", "cell", "on its way", "waiting"}) {
        ask(id, id == std::string("cell") ? "execute_request" : "complete_request");
    }
    ends.server->lost("lost", 1, 3);
    EXPECT_THAT(told(), ElementsAre("error", "execute_reply of cell", "status",
                                    "complete_reply of on its way", "status"));
    ask("later");
    EXPECT_THAT(ends.sent.at(0).content, HasSubstr("numora: lost. Trying again."));
    EXPECT_THAT(told(), ElementsAre("stream"));
    ends.server->ended("over");
    EXPECT_THAT(told(), ElementsAre("complete_reply of arrived", "status", "complete_reply of waiting",
                                    "status", "error", "execute_reply of later", "status"));
    EXPECT_EQ(ends.end, "over");
}

TEST_F(RelayTest, holdsNoMoreThanItsBounds) {
    ends.isRoomy = false;
    serverSays(Channel::Iopub, "stream", "a");
    EXPECT_EQ(ends.reads, 0);
    relay.roomIsBack();
    EXPECT_EQ(ends.reads, 1);

    for (std::size_t i = 0; i <= jupyter::Relay::mostRequests; ++i) ask(std::to_string(i));
    told();
    serverSays(Channel::Shell, "execute_reply", "0");
    serverSays(Channel::Shell, "execute_reply", "1");
    EXPECT_THAT(told(), ElementsAre("execute_reply of 1"));

    ends.isFull = true;
    ask("too much");
    EXPECT_THAT(told(), ElementsAre("error", "execute_reply of too much", "status"));
}

}  // namespace
