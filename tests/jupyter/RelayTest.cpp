#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jupyter/relay/Relay.h"
#include "jupyter/wire/WebSocket.h"
#include "jupyter/wire/rawMembers.h"

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
    void send(Message message) override {
        if (isBroken) throw std::runtime_error("broken");
        sent.push_back(std::move(message));
    }
    bool hasRoom() const override { return isRoomy; }

    std::vector<Message> sent;
    bool isRoomy = true;
    bool isBroken = false;
    bool isFull = false;  // no more goes to the server
    int reads = 0;
    std::uint64_t last = 0;  // that has gone to the server
    std::vector<Message> came;
    std::set<std::uint64_t> dropped;
    int releases = 0;
    jupyter::ServerSocketListener* server = nullptr;
    std::string end = "none";
};

class FakeSocket : public jupyter::ServerSocket {
public:
    explicit FakeSocket(Ends& ends) : ends_(ends) {}
    void start(jupyter::ServerSocketListener& listener) override { ends_.server = &listener; }
    bool send(std::uint64_t number, std::string frame) override {
        if (ends_.isFull) return false;
        ends_.last = number;
        ends_.came.push_back(jupyter::wire::decodeV1(frame));
        return true;
    }
    void readOn() override { ++ends_.reads; }
    void goOn(std::set<std::uint64_t> dropped) override { ends_.dropped = std::move(dropped); }

private:
    Ends& ends_;
};

class RelayTest : public testing::Test {
protected:
    static std::string header(const std::string& id, const std::string& type) {
        const std::string session = id.starts_with("other") ? "theirs" : "ours";
        return R"({"msg_id":")" + id + R"(","session":")" + session + R"(","msg_type":")" + type + R"("})";
    }
    void ask(const std::string& id, const std::string& type = "execute_request",
             const std::string& content = "{}") {
        const auto channel = type == "input_reply" ? Channel::Stdin : Channel::Shell;
        relay.receive(
            {.channel = channel, .route = {"of " + id}, .header = header(id, type), .content = content});
    }
    void serverSays(Channel channel, const std::string& type, const std::string& parent,
                    const std::string& content = "{}") {
        const Message message{.channel = channel,
                              .header = header("x", type),
                              .parent = header(parent, "execute_request"),
                              .content = content};
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
                         {.release =
                              [this](bool, const auto& done) {
                                  ++ends.releases;
                                  ask("again", "shutdown_request");
                                  done("");
                              },
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
    // Its cell would wait for ever.
    serverSays(Channel::Stdin, "input_request", "a");
    EXPECT_EQ(ends.last, 4);
    EXPECT_EQ(ends.came.back().content, R"({"value":"\u0004"})");
    serverSays(Channel::Iopub, "stream", "somebody's");
    EXPECT_THAT(told(), ElementsAre("input_request of a", "execute_reply of b", "input_request of a",
                                    "execute_reply of a", "stream"));
}

TEST_F(RelayTest, failsWhatMayHaveArrivedWhenTheConnectionBreaksAndNothingElse) {
    for (const std::string id : {"arrived", "cell", "on its way", "waiting", "cell after it", "other cell"}) {
        ask(id, id.find("cell") != id.npos ? "execute_request" : "complete_request");
    }
    ends.server->lost("lost", 1, 3);
    EXPECT_THAT(told(),
                ElementsAre("error", "execute_reply of cell", "status", "complete_reply of on its way",
                            "status", "status", "execute_reply of cell after it", "status", "stream"));
    EXPECT_THAT(ends.dropped, ElementsAre(5));
    serverSays(Channel::Shell, "execute_reply", "other cell");
    ends.server->lost("lost", 6, 6);
    EXPECT_THAT(told(), ElementsAre("execute_reply of other cell"));
    ask("later", "execute_request", R"({"stop_on_error":false})");
    EXPECT_THAT(ends.sent.at(0).content, HasSubstr("numora: lost. Trying again."));
    ask("last");
    serverSays(Channel::Iopub, "execute_input", "later", R"({"code":"","execution_count":7})");
    EXPECT_THAT(told(), ElementsAre("stream", "execute_input"));
    ends.server->lost("lost", 6, 7);
    EXPECT_THAT(ends.sent.at(1).content, HasSubstr(R"("execution_count":7)"));  // some front ends need one
    EXPECT_THAT(told(), ElementsAre("error", "execute_reply of later", "status", "stream"));
    EXPECT_THAT(ends.dropped, ElementsAre());
    ends.server->ended("over");
    EXPECT_THAT(told(), ElementsAre("complete_reply of arrived", "status", "complete_reply of waiting",
                                    "status", "error", "execute_reply of last", "status"));
    EXPECT_EQ(ends.end, "over");
}

TEST_F(RelayTest, failsWhoseReplyWasLostWithTheConnection) {
    const auto says = [&](const std::string& parent, const std::string& state) {
        serverSays(Channel::Iopub, "status", parent, R"({"execution_state":")" + state + R"("})");
    };
    // The answers to the last two questions.
    const auto answers = [&](const std::string& running) {
        told();
        for (const auto& question : std::vector<Message>(ends.came.end() - 2, ends.came.end())) {
            const auto id = std::string(jupyter::wire::textIn(question.header, "msg_id"));
            says(id, "busy");
            says(id, "idle");
            if (!running.empty()) says(running, "busy");
        }
        auto all = told();
        std::erase(all, "status");
        return all;
    };
    for (const char* id : {"a", "b", "c"}) ask(id);
    ends.server->lost("lost", 3, 3);
    ends.server->opened();
    EXPECT_THAT(answers("theirs"), ElementsAre());  // before which of them, nobody knows
    says("theirs", "idle");
    EXPECT_EQ(ends.last, 7);
    EXPECT_THAT(answers("b"), ElementsAre("error", "execute_reply of a"));
    ends.server->lost("lost", 7, 7);
    ends.server->opened();
    EXPECT_THAT(answers(""), ElementsAre("error", "execute_reply of b", "error", "execute_reply of c"));
    ends.server->opened();
    EXPECT_EQ(ends.last, 9);
}

TEST_F(RelayTest, keepsFromTheServerWhatWouldEndTheConnectionOfAll) {
    const std::string large = R"({"a":")" + std::string(jupyter::Relay::mostBytes, 'a') + R"("})";
    for (const auto& [content, problem] :
         std::vector<std::pair<std::string, std::string>>{{"{\"\xff\":1}", "must be in UTF-8"},
                                                          {"{", "must hold JSON objects"},
                                                          {"[]", "must hold JSON objects"},
                                                          {"{}1", "must end with"},
                                                          {large, "at most 16 MiB"}}) {
        ask("a", "execute_request", content);
        EXPECT_THAT(ends.sent.at(1).content, HasSubstr(problem));
        EXPECT_THAT(told(), ElementsAre("status", "error", "execute_reply of a", "status"));
    }
    ask("a", "comm_msg", "{");
    EXPECT_THAT(told(), ElementsAre("status", "stream", "status"));
    EXPECT_EQ(ends.last, 0);
    // NaN and halves of pairs it takes.
    ask("b", "execute_request", R"({"code":"\ud800","n":NaN})");
    EXPECT_EQ(ends.last, 1);
    ask("b", "comm_info_request");
    EXPECT_THAT(told(), ElementsAre("status", "comm_info_reply of b", "status"));
}

TEST_F(RelayTest, releasesTheKernelOnce) {
    ask("first", "shutdown_request");
    EXPECT_THAT(told(), ElementsAre("status", "status", "shutdown_reply of again", "status",
                                    "shutdown_reply of first", "status"));
    ask("late", "shutdown_request");
    EXPECT_EQ(ends.releases, 1);
    EXPECT_EQ(ends.end, "");
}

TEST_F(RelayTest, holdsNoMoreThanItsBounds) {
    ends.isRoomy = false;
    serverSays(Channel::Iopub, "stream", "a");
    EXPECT_EQ(ends.reads, 0);
    relay.roomIsBack();
    EXPECT_EQ(ends.reads, 1);

    const std::vector<std::string> refusal = {"status", "error", "execute_reply of too much", "status"};
    for (std::size_t i = 0; i < jupyter::Relay::mostRequests; ++i) ask(std::to_string(i));
    told();
    ask("too much");
    EXPECT_EQ(told(), refusal);
    // One that has no reply.
    serverSays(Channel::Iopub, "status", "0", R"({"execution_state":"idle"})");
    serverSays(Channel::Stdin, "input_request", "1");
    told();

    ends.isFull = true;
    ask("too much");
    EXPECT_EQ(told(), refusal);
    ask("1", "input_reply");
    EXPECT_THAT(ends.sent.at(0).content,
                HasSubstr("The answer was not sent: too much waits for the server."));
    EXPECT_THAT(told(), ElementsAre("stream"));
    relay.raised(SIGINT);
    EXPECT_THAT(told(), ElementsAre("stream"));
    ends.isFull = false;
    ask("in its place");
    EXPECT_THAT(told(), ElementsAre());
}

TEST_F(RelayTest, endsAlsoWhenNobodyCanBeTold) {
    ask("a");
    ends.isBroken = true;
    EXPECT_THROW(relay.failed("broken"), std::runtime_error);
    EXPECT_EQ(ends.end, "broken");
}

}  // namespace
