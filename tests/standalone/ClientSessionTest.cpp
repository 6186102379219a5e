#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "messages/LocalMessageService.h"

namespace {

using namespace std::chrono_literals;
using connector::common::DataBuffer;
using connector::message_service::JsonMessage;
using messages::ClientSession;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kOutput = "/eval/response/output";
const std::string kError = "/eval/response/error";
const std::string kCompletion = "/eval/response/completion";

std::string frame(const std::string& channel, const std::string& data) {
    return R"({"channel":")" + channel + R"(","data":)" + data + "}";
}

std::string dropped(const std::string& channel, int messages, int bytes) {
    return frame("/connector/dropped", R"({"channel":")" + channel + R"(","messages":)" +
                                           std::to_string(messages) + R"(,"bytes":)" + std::to_string(bytes) +
                                           "}");
}

class ClientSessionTest : public testing::Test {
protected:
    void publish(const std::string& channel, const std::string& data) {
        service_.publish(channel, DataBuffer(data));
    }
    /// A session that has room for so many frames of output with data of one byte, and gets all responses.
    std::shared_ptr<ClientSession> openFor(std::size_t frames) {
        auto session = service_.openSession({.queueBytes = frames * frame(kOutput, "1").size()});
        session->subscribe("/eval/response/*");
        return session;
    }
    static std::vector<std::string> takeAll(ClientSession& session) {
        std::vector<std::string> texts;
        for (const auto& taken : session.take(SIZE_MAX, 0ms).frames) texts.push_back(taken->text());
        return texts;
    }

    std::chrono::steady_clock::time_point now_;
    messages::LocalMessageService service_{{.logged = {}, .now = [this] { return now_; }}};
};

TEST_F(ClientSessionTest, hasAnIdThatNobodyGuesses) {
    std::set<std::string> ids;
    for (int i = 0; i < 100; ++i) {
        const auto session = service_.openSession();
        EXPECT_EQ(session->id().size(), 40U);
        EXPECT_EQ(session->id().find_first_not_of("0123456789abcdef"), std::string::npos);
        ids.insert(session->id());
    }
    EXPECT_EQ(ids.size(), 100U);
}

TEST_F(ClientSessionTest, getsOneCopyOfEveryMessageInTheOrderPublished) {
    const auto session = service_.openSession();
    for (const auto* pattern : {"/a/b", "/a/*", "/**"}) session->subscribe(pattern);
    publish("/a/b", R"({"x": [1 ,2]})");
    publish("/c", "null");
    const auto taken = session->take(SIZE_MAX, 0ms).frames;
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(taken[0]->text(), R"({"channel":"/a/b","data":{"x": [1 ,2]}})");
    EXPECT_EQ(taken[0]->channel(), "/a/b");
    EXPECT_EQ(taken[0]->data(), R"({"x": [1 ,2]})");
    EXPECT_EQ(taken[1]->text(), frame("/c", "null"));
}

TEST_F(ClientSessionTest, hasItsChangesHeededOnAChannelThatIsInUse) {
    const auto session = service_.openSession();
    publish("/a/b", "1");
    session->subscribe("/a/*");
    publish("/a/b", "2");
    session->unsubscribe("/a/*");
    publish("/a/b", "3");
    session->subscribe("/a/b");
    publish("/a/b", "4");
    session->unsubscribe("/a/b");
    publish("/a/b", "5");
    EXPECT_THAT(takeAll(*session), ElementsAre(frame("/a/b", "2"), frame("/a/b", "4")));
}

TEST_F(ClientSessionTest, getsFramesOfItsOwnBehindWhatIsQueued) {
    const auto session = openFor(10);
    publish(kOutput, "1");
    EXPECT_TRUE(session->send(std::make_shared<messages::MessageFrame>("/service/x", "{}", R"(,"id":"7")")));
    EXPECT_THAT(takeAll(*session),
                ElementsAre(frame(kOutput, "1"), R"({"channel":"/service/x","data":{},"id":"7"})"));
}

TEST_F(ClientSessionTest, sharesOneFrameWithAllSessions) {
    constexpr int count = 1'000;
    std::vector<std::shared_ptr<ClientSession>> sessions;
    for (int i = 0; i < count; ++i) {
        sessions.push_back(service_.openSession());
        sessions.back()->subscribe("/a/" + std::to_string(i));
        sessions.back()->subscribe(i % 2 == 0 ? "/a/**" : "/a/all");
    }
    publish("/a/all", "1");
    publish("/a/none/of/them", "2");
    publish("/b", "3");
    EXPECT_EQ(service_.metrics().framesBuilt, 2U);
    EXPECT_EQ(service_.metrics().messagesPublished, 3U);
    EXPECT_EQ(service_.metrics().openSessions, 1'000U);
    const auto first = sessions[0]->take(1, 0ms).frames;
    const auto second = sessions[1]->take(1, 0ms).frames;
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first, second);
}

TEST_F(ClientSessionTest, publishesForItsClient) {
    std::vector<std::string> seen;
    const auto token = service_.subscribe("/a", [&](const JsonMessage& message) {
        seen.push_back(message.data + message.context->getOr<std::string>("clientType", "none"));
    });
    const auto context = std::make_shared<connector::common::ContextState>();
    const auto session = service_.openSession({.clientType = "console"});
    session->subscribe("/a");
    EXPECT_TRUE(session->publish("/a", "1", context));
    EXPECT_TRUE(service_.openSession()->publish("/a", "2", nullptr));
    EXPECT_THAT(seen, ElementsAre("1console", "2none"));
    EXPECT_TRUE(context->has("clientType"));
    EXPECT_THAT(takeAll(*session), ElementsAre(frame("/a", "1"), frame("/a", "2")));
    session->close();
    EXPECT_FALSE(session->publish("/a", "3", nullptr));
}

TEST_F(ClientSessionTest, takesNoMoreThanAskedForButOneFrame) {
    const auto session = openFor(10);
    const auto size = frame(kOutput, "1").size();
    for (const auto* data : {"1", "2", "3", "4"}) publish(kOutput, data);
    EXPECT_EQ(session->take(0, 0ms).frames.size(), 1U);
    EXPECT_EQ(session->take(2 * size, 0ms).frames.size(), 2U);
    EXPECT_EQ(session->queuedBytes(), size);
    EXPECT_EQ(session->take(2 * size, 0ms).frames.size(), 1U);
    const auto nothing = session->take(2 * size, 1ms);
    EXPECT_THAT(nothing.frames, IsEmpty());
    EXPECT_FALSE(nothing.isClosed);
}

TEST_F(ClientSessionTest, wakesWhoWaitsForFramesAndForTheEnd) {
    const auto session = openFor(10);
    std::thread taker([&] {
        EXPECT_EQ(session->take(1, 60s).frames.size(), 1U);
        EXPECT_TRUE(session->take(1, 60s).isClosed);
    });
    publish(kOutput, "1");
    while (session->queuedBytes() > 0) std::this_thread::yield();
    session->close();
    taker.join();
}

TEST_F(ClientSessionTest, callsTheWakeUpWhenThereIsSomethingNew) {
    int calls = 0;
    const auto session = openFor(10);
    session->setWakeUp([&] {
        ++calls;
        session->queuedBytes();  // no lock is held
        throw 1;
    });
    EXPECT_EQ(calls, 0);
    publish(kOutput, "1");
    publish(kOutput, "2");
    EXPECT_EQ(calls, 1);
    session->setWakeUp([&] { calls += 10; });
    EXPECT_EQ(calls, 11);
    takeAll(*session);
    publish(kOutput, "3");
    EXPECT_EQ(calls, 21);
    session->close();
    session->close();
    EXPECT_EQ(calls, 31);
}

TEST_F(ClientSessionTest, givesWhatIsLeftAfterItsEnd) {
    const auto session = openFor(10);
    publish(kOutput, "1");
    session->close("enough");
    publish(kOutput, "2");
    EXPECT_FALSE(session->send(std::make_shared<messages::MessageFrame>("/a", "1")));
    EXPECT_EQ(session->closeReason(), "enough");
    EXPECT_FALSE(session->take(SIZE_MAX, 0ms).isClosed);
    EXPECT_TRUE(session->take(SIZE_MAX, 60s).isClosed);
}

TEST_F(ClientSessionTest, losesTheOldestOutputAndSaysSoInItsPlace) {
    const auto session = openFor(3);
    for (int i = 0; i < 10; ++i) publish(kOutput, std::to_string(i));
    EXPECT_EQ(session->queuedBytes(), 3 * frame(kOutput, "1").size());
    EXPECT_THAT(takeAll(*session), ElementsAre(dropped(kOutput, 7, 7), frame(kOutput, "7"),
                                               frame(kOutput, "8"), frame(kOutput, "9")));
    for (int i = 0; i < 4; ++i) publish(kOutput, std::to_string(i));
    EXPECT_THAT(takeAll(*session), ElementsAre(dropped(kOutput, 1, 1), frame(kOutput, "1"),
                                               frame(kOutput, "2"), frame(kOutput, "3")));
    EXPECT_EQ(service_.metrics().droppedMessages, 8U);
    EXPECT_EQ(service_.metrics().droppedBytes, 8U);
    EXPECT_EQ(service_.metrics().queuedBytes, 0U);
}

TEST_F(ClientSessionTest, keepsCompletionAndTellsOfTheLossesOnItsEitherSide) {
    const auto session = openFor(4);
    for (const auto* data : {"1", "2"}) publish(kOutput, data);
    publish(kCompletion, "3");
    for (const auto* data : {"4", "5", "6", "7"}) publish(kOutput, data);
    EXPECT_THAT(takeAll(*session),
                ElementsAre(dropped(kOutput, 2, 2), frame(kCompletion, "3"), dropped(kOutput, 2, 2),
                            frame(kOutput, "6"), frame(kOutput, "7")));
}

TEST_F(ClientSessionTest, countsTheLossesOfOneGapByChannel) {
    const auto session = openFor(1);
    for (int i = 0; i < 5; ++i) {
        publish(kOutput, "1");
        publish(kError, "22");
    }
    EXPECT_THAT(takeAll(*session),
                ElementsAre(dropped(kOutput, 5, 5), dropped(kError, 4, 8), frame(kError, "22")));
}

TEST_F(ClientSessionTest, countsTheLossesOfAPatternTogether) {
    messages::LocalMessageService service({.droppable = {"/log/**"}, .logged = {}});
    const auto session = service.openSession({.queueBytes = 1});
    session->subscribe("/**");
    for (int i = 0; i < 5; ++i) service.publish("/log/" + std::to_string(i), DataBuffer("1"));
    EXPECT_THAT(takeAll(*session), ElementsAre(dropped("/log/**", 4, 4), frame("/log/4", "1")));
}

TEST_F(ClientSessionTest, takesAFrameLargerThanTheQueueOnlyWhenEmpty) {
    const std::string large(200, '7');
    const auto session = openFor(2);
    publish(kOutput, large);
    EXPECT_THAT(takeAll(*session), ElementsAre(frame(kOutput, large)));
    publish(kOutput, "1");
    publish(kCompletion, large);
    EXPECT_THAT(takeAll(*session), ElementsAre(dropped(kOutput, 1, 1), frame(kCompletion, large)));
    publish(kCompletion, "1");
    publish(kOutput, large);
    EXPECT_THAT(takeAll(*session), ElementsAre(frame(kCompletion, "1"), dropped(kOutput, 1, 200)));
    publish(kCompletion, large);
    publish(kOutput, "1");
    EXPECT_THAT(takeAll(*session), ElementsAre(frame(kCompletion, large), dropped(kOutput, 1, 1)));
    EXPECT_FALSE(session->isClosed());
    EXPECT_EQ(session->queuedBytes(), 0U);
}

TEST_F(ClientSessionTest, endsWhenItIsFullOfWhatMustNotBeLost) {
    std::vector<std::string> notices;
    const auto watcher = service_.watch(
        "/**", [](const auto&) {}, [&](const auto& event) { notices.push_back(event.channel); });
    int wakeUps = 0;
    const auto session = openFor(3);
    publish(kOutput, "1");
    publish(kCompletion, "2");
    session->setWakeUp([&] { ++wakeUps; });
    publish(kCompletion, std::string(100, '3'));
    publish(kCompletion, "4");
    EXPECT_EQ(session->closeReason(), "its queue is full of messages that must not be lost");
    EXPECT_EQ(wakeUps, 2);  // by setWakeUp, and by the end
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_EQ(service_.metrics().openSessions, 0U);
    EXPECT_THAT(takeAll(*session), ElementsAre(frame(kOutput, "1"), frame(kCompletion, "2")));
    EXPECT_TRUE(session->take(1, 0ms).isClosed);
    EXPECT_THAT(notices, ElementsAre("/eval/response/*"));
}

TEST_F(ClientSessionTest, endsWhenItStaysFullForTooLong) {
    const auto session = openFor(1);
    const auto fill = [&] {
        publish(kOutput, "1");
        publish(kOutput, "2");
    };
    fill();
    now_ += 30s;
    fill();
    takeAll(*session);  // not full any more
    now_ += 1s;
    fill();
    now_ += 30s;
    fill();
    EXPECT_FALSE(session->isClosed());
    now_ += 1ms;
    fill();
    EXPECT_EQ(session->closeReason(), "its queue has been full for too long");
}

TEST_F(ClientSessionTest, isSweptWhenFullForTooLongWithNothingPublished) {
    std::vector<std::string> notices;
    const auto watcher = service_.watch(
        "/**", [](const auto&) {}, [&](const auto& event) { notices.push_back(event.channel); });
    const auto session = openFor(1);
    const auto idle = openFor(2);
    for (const auto* data : {"1", "2"}) publish(kOutput, data);
    now_ += 30s;
    service_.sweep();
    EXPECT_FALSE(session->isClosed());
    now_ += 1ms;
    service_.sweep();
    EXPECT_TRUE(session->isClosed());
    EXPECT_FALSE(idle->isClosed());
    EXPECT_THAT(notices, ElementsAre("/eval/response/*"));
}

}  // namespace
