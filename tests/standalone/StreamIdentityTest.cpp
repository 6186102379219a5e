#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>
#include <gmock/gmock.h>

#include "RunningInterpreter.h"
#include "connector/common/RequestOrigin.h"
#include "connector/common/requests.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "messages/LocalMessageService.h"

namespace {

using namespace std::chrono_literals;
using connector::common::RequestOrigin;
using connector::common::RequestRefusal;

/// Which request each message that a client gets comes from.
class StreamIdentityTest : public StreamingInterpreter {
protected:
    StreamIdentityTest() {
        client_->subscribe("/eval/response/**");
        client_->subscribe("/eventmgr/0/tick");
    }

    /// Empty when it is not refused.
    std::string publish(const std::string& name, const std::string& code,
                        std::optional<std::uint64_t> prompt = std::nullopt) {
        const auto context = std::make_shared<connector::common::ContextState>();
        RequestOrigin::set(*context, {.request = name});
        if (prompt) context->set(RequestOrigin::forPrompt, *prompt);
        client_->publish("/eval/request", connector::json::quoted(code), context);
        return context->getOr(RequestRefusal::contextKey, RequestRefusal()).reason;
    }

    /// The next messages up to the one with this text: each as its request's name, the last segment of its
    /// channel and its data. Batches of one kind that follow each other are one.
    std::vector<std::string> until(const std::string& end) {
        std::vector<std::string> all;
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (std::chrono::steady_clock::now() < deadline) {
            for (const auto& frame : client_->take(1, 100ms).frames) {
                const auto message = connector::json::parse(frame->text()).extract<Poco::JSON::Object::Ptr>();
                const auto members = message->getObject("ext")->getObject("connector");
                prompt_ = members->optValue<std::uint64_t>("prompt", 0);
                echo_ = members->optValue("echo", true);
                const std::string channel(frame->channel());
                const std::string head = members->optValue<std::string>("request", "-") + " " +
                                         channel.substr(channel.rfind('/') + 1) + " ";
                const auto data = message->get("data");
                const auto text = data.isString() ? data.extract<std::string>() : std::string(frame->data());
                if (!all.empty() && all.back().starts_with(head)) {
                    all.back() += text;
                } else {
                    all.push_back(head + text);
                }
                if (head + text == end) return all;
            }
        }
        ADD_FAILURE() << "no " << end;
        return all;
    }

    std::shared_ptr<messages::ClientSession> client_ = host_->messages()->openSession();
    std::uint64_t prompt_ = 0;  ///< of the last message
    bool echo_ = true;
};

using Lines = std::vector<std::string>;

TEST_F(StreamIdentityTest, isThatOfTheCodeInWhateverComesOfIt) {
    publish("a",
            "import numora, sys\nprint(1); print(2, file=sys.stderr); undefned = 1; numora.clc(); undefnd");
    publish("b", "numora.post_event('tick')\nprint(3)");
    const auto all = until("b completion Done: success");
    EXPECT_EQ(Lines(all.begin(), all.begin() + 4),
              (Lines{"a iqminput NO_PROMPT", "a output 1\n", "a error 2\n", "a clear clear"}));
    EXPECT_TRUE(all.at(4).starts_with("a error Traceback"));
    EXPECT_EQ(Lines(all.begin() + 5, all.begin() + 9),
              (Lines{"a suggest undefned", "a iqminput BASE_PROMPT", "a completion Done: failure",
                     "b iqminput NO_PROMPT"}));
    EXPECT_NE(std::ranges::find(all, R"(b tick {"payload":null})"), all.end());
    EXPECT_NE(std::ranges::find(all, "b output 3\n"), all.end());
}

TEST_F(StreamIdentityTest, isThatOfTheCodeThatStartedAThreadAndNoneAfterItsEnd) {
    publish("a", R"(
import threading, numora
go, gone = threading.Event(), threading.Event()
def work():
    print('in a'); numora.post_event('tick'); begun.set()
    go.wait(); print('after a'); numora.post_event('tick', 1); gone.set()
begun = threading.Event()
threading.Thread(target=work).start()
begun.wait())");
    // home() comes after all events before it.
    publish("b", "print('in b'); go.set(); gone.wait(); numora.home(); print('more of b')");
    std::string all;
    for (const auto& line : until("b completion Done: success")) all += line;
    for (const auto& line : {"a output in a\n", R"(a tick {"payload":null})", R"(- tick {"payload":1})",
                             "b output in b\n", "- output after a\n", "b output more of b\n"}) {
        EXPECT_THAT(all, testing::HasSubstr(line));
    }
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("b tick")));
}

TEST_F(StreamIdentityTest, isThatOfTheCodeThatGivesWorkToAThreadOfAPool) {
    publish("a", "import asyncio\nawait asyncio.to_thread(print, 1)");
    publish("b", "await asyncio.to_thread(print, 2)");
    EXPECT_THAT(until("b completion Done: success"), testing::IsSupersetOf({"a output 1\n", "b output 2\n"}));
}

// Whoever prints next delivers it: here a thread whose code has ended, and a call inside the code.
TEST_F(StreamIdentityTest, isThatOfTheRunningCodeInWhatNativeCodePrints) {
    publish("a", R"(
import os, threading
go, gone = threading.Event(), threading.Event()
def work():
    go.wait(); print('after a', flush=True); gone.set()
threading.Thread(target=work).start()
ended = False
def stop(): global ended; ended = True)");
    publish("b",
            "os.write(1, b'native 1 '); go.set(); gone.wait(); os.write(1, b'native 2\\n')\n"
            "while not ended: pass");
    until("b iqminput NO_PROMPT");
    EXPECT_EQ(call(u"print", {u"\"inside\""}, 0, "ppe"), "[]");
    EXPECT_EQ(call(u"stop", {}, 0, "ppe"), "[]");
    std::string all;
    for (const auto& line : until("b completion Done: success")) all += line;
    EXPECT_THAT(all, testing::HasSubstr("b output native 1 "));
    EXPECT_THAT(all, testing::HasSubstr("native 2\n"));
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("- output native")));
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("inside")));
}

TEST_F(StreamIdentityTest, lettersTypedForAPromptGoToNoOther) {
    publish("a", "import getpass\nn = input('Name? ')\np = getpass.getpass()\nprint(n, p)");
    until("a iqminput INPUT_PROMPT");
    const auto first = prompt_;
    EXPECT_TRUE(first > 0 && echo_);
    publish("b", "print('b is no answer')", 0);
    EXPECT_EQ(publish("t", "nobody\n", first + 1), "the prompt is gone");
    EXPECT_EQ(publish("t", "Ada\n", first), "");
    until("a iqminput INPUT_PROMPT");
    EXPECT_TRUE(prompt_ != first && !echo_);
    EXPECT_EQ(publish("u", "rm -rf\n", first), "the prompt is gone");
    EXPECT_EQ(publish("u", "secret\n", prompt_), "");
    const auto all = until("b completion Done: success");
    EXPECT_NE(std::ranges::find(all, "a output Ada secret\n"), all.end());
    EXPECT_NE(std::ranges::find(all, "u completion Done: success"), all.end());
    EXPECT_NE(std::ranges::find(all, "b output b is no answer\n"), all.end());
}

}  // namespace
