#include <thread>

#include <gmock/gmock.h>

#include "messages/LocalMessageService.h"

namespace {

using namespace std::chrono_literals;
using messages::ClientSession;
using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::string>;

const std::string responses = "/eval/response/";
const std::string large = "output " + std::string(200, '7');
const std::string largeCompletion = "completion " + std::string(200, '7');

std::string lost(const std::string& channel, int count, int bytes) {
    return R"(/connector/dropped {"channel":")" + channel + R"(","messages":)" + std::to_string(count) +
           R"(,"bytes":)" + std::to_string(bytes) + "}";
}

/// Messages stand here as "channel data", and those of responses as "output data".
class ClientSessionTest : public testing::Test {
protected:
    void publish(const Texts& messages) {
        for (const std::string& message : messages) {
            const auto space = message.find(' ');
            service_.publish((message.starts_with('/') ? "" : responses) + message.substr(0, space),
                             connector::common::DataBuffer(message.substr(space + 1)));
        }
    }
    /// A session that has room for so many frames of output with data of one byte, and gets all responses.
    std::shared_ptr<ClientSession> openFor(std::size_t frames) {
        auto session = service_.openSession({.queueBytes = frames * sizeOfOutput});
        session->subscribe(responses + "*");
        return session;
    }
    static Texts taken(ClientSession& session) {
        Texts texts;
        for (const auto& frame : session.take(SIZE_MAX, 0ms).frames) {
            const std::string channel(frame->channel());
            texts.push_back(channel.substr(channel.starts_with(responses) ? responses.size() : 0) + ' ' +
                            std::string(frame->data()));
        }
        return texts;
    }

    const std::size_t sizeOfOutput = std::string(R"({"channel":"/eval/response/output","data":1})").size();
    std::chrono::steady_clock::time_point now_;
    messages::LocalMessageService service_{
        {.droppable = {responses + "output", responses + "error", "/log/**"}, .logged = {}, .now = [this] {
             return now_;
         }}};
    Texts ended_;
    const std::unique_ptr<connector::message_service::Subscription> watcher_ = service_.watch(
        "/**", [](const auto&) {}, [this](const auto& event) { ended_.push_back(event.channel); });
};

TEST_F(ClientSessionTest, getsOneCopyOfEveryMessageInTheOrderPublishedAndFramesOfItsOwn) {
    const auto session = service_.openSession();
    for (const auto* pattern : {"/a/b", "/a/*", "/**"}) session->subscribe(pattern);
    publish({R"(/a/b {"x": [1 ,2]})"});
    EXPECT_TRUE(session->send(std::make_shared<messages::MessageFrame>("/service/x", "{}", R"(,"id":"7")")));
    const auto frames = session->take(SIZE_MAX, 0ms).frames;
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0]->text(), R"({"channel":"/a/b","data":{"x": [1 ,2]}})");
    EXPECT_EQ(frames[0]->channel(), "/a/b");
    EXPECT_EQ(frames[0]->data(), R"({"x": [1 ,2]})");
    EXPECT_EQ(frames[1]->text(), R"({"channel":"/service/x","data":{},"id":"7"})");
}

TEST_F(ClientSessionTest, changesItsSubscriptionsOnAChannelThatIsInUse) {
    const auto session = service_.openSession();
    publish({"/a/b 1"});
    for (const auto* pattern : {"/a/*", "/a/b"}) {
        session->subscribe(pattern);
        publish({"/a/b 2"});
        session->unsubscribe(pattern);
        publish({"/a/b 3"});
    }
    EXPECT_THAT(taken(*session), ElementsAre("/a/b 2", "/a/b 2"));
}

TEST_F(ClientSessionTest, takesNoMoreThanAskedForButOneFrame) {
    const auto session = openFor(10);
    publish({"output 1", "output 2", "output 3", "output 4"});
    EXPECT_EQ(session->take(0, 0ms).frames.size(), 1U);
    EXPECT_EQ(session->take(2 * sizeOfOutput, 0ms).frames.size(), 2U);
    EXPECT_EQ(session->queuedBytes(), sizeOfOutput);
    EXPECT_EQ(session->take(2 * sizeOfOutput, 0ms).frames.size(), 1U);
    EXPECT_FALSE(session->take(2 * sizeOfOutput, 1ms).isClosed);
}

TEST_F(ClientSessionTest, wakesWhoWaitsForFramesAndForTheEnd) {
    const auto session = openFor(10);
    std::jthread taker([&] {
        EXPECT_EQ(session->take(1, 60s).frames.size(), 1U);
        EXPECT_TRUE(session->take(1, 60s).isClosed);
    });
    publish({"output 1"});
    while (session->queuedBytes() > 0) std::this_thread::yield();
    session->close();
}

TEST_F(ClientSessionTest, losesTheOldestOutputAndSaysSoInItsPlace) {
    const std::string output = responses + "output", error = responses + "error";
    const std::string largeLog = "/log/" + std::string(200, 'x') + " 3";
    struct Case {
        std::size_t room;
        Texts published, taken;
    };
    const std::vector<Case> rows = {
        {2, {"output 1", "output 2", "output 3", "output 4"}, {lost(output, 2, 2), "output 3", "output 4"}},
        {3,
         {"output 1", "completion 2", "output 3", "output 4", "output 5"},
         {lost(output, 1, 1), "completion 2", lost(output, 2, 2), "output 5"}},
        {1,
         {"output 1", "error 22", "output 1", "error 22"},
         {lost(output, 2, 2), lost(error, 1, 2), "error 22"}},
        {2, {large, large}, {lost(output, 1, 200), large}},
        {2, {"output 1", largeCompletion}, {lost(output, 1, 1), largeCompletion}},
        {2, {"completion 1", large}, {"completion 1", lost(output, 1, 200)}},
        {1, {"/log/1 1", "/log/2 22", largeLog}, {lost("/log/**", 2, 3), largeLog}},
    };
    for (const Case& row : rows) {
        const auto session = openFor(row.room);
        session->subscribe("/log/*");
        for (int round = 0; round < 2; ++round) {
            publish(row.published);
            EXPECT_EQ(session->queuedBytes(), service_.metrics().queuedBytes);
            EXPECT_EQ(taken(*session), row.taken);
            EXPECT_EQ(session->queuedBytes(), 0U);
            EXPECT_EQ(session->closeReason(), "");
        }
    }
    EXPECT_EQ(service_.metrics().droppedMessages, 2 * (2U + 3U + 3U + 1U + 1U + 1U + 2U));
    EXPECT_EQ(service_.metrics().droppedBytes, 2 * (2U + 3U + 4U + 200U + 1U + 200U + 3U));
}

TEST_F(ClientSessionTest, losesWhatItsOwnRequestsCausedLast) {
    const auto session = openFor(4);
    for (const std::string message : {"output 1", "output 22", "output 3", "output 44", "output 5"}) {
        const auto context = std::make_shared<connector::common::ContextState>();
        const auto owner = message.ends_with("22") || message.ends_with("44") ? nullptr : session->pace();
        connector::common::RequestOrigin::set(*context, {.request = "r", .pace = owner});
        const connector::common::CurrentContext current(context);
        publish({message});
    }
    const std::string output = responses + "output";
    EXPECT_THAT(taken(*session), ElementsAre(lost(output, 2, 3), "output 3", lost(output, 1, 2), "output 5"));
}

TEST_F(ClientSessionTest, isBehindFromAnEighthOfItsQueueToASixteenthAsLongAsItTakes) {
    const auto session = openFor(160), other = service_.openSession({.queueBytes = 1, .ownerWait = 0ms});
    other->subscribe(responses + "*");
    const auto pace = session->pace();
    const auto isBehindAfter = [&](int published, std::size_t takenFrames) {
        for (int i = 0; i < published; ++i) publish({"output 1"});
        if (takenFrames > 0) session->take(takenFrames * sizeOfOutput, 0ms);
        return pace->isBehind();
    };
    EXPECT_FALSE(isBehindAfter(20, 0));
    now_ += 1h;  // with nothing to take for most of it
    EXPECT_FALSE(isBehindAfter(0, 20));
    now_ += 1h;
    EXPECT_TRUE(isBehindAfter(21, 0));
    now_ += 2s;
    EXPECT_TRUE(pace->isBehind());
    now_ += 1ms;
    EXPECT_FALSE(isBehindAfter(1, 0));  // gone
    EXPECT_TRUE(isBehindAfter(0, 1));   // and back
    now_ += 3s;
    EXPECT_FALSE(pace->isBehind());
    session->noteReading();
    EXPECT_TRUE(isBehindAfter(0, 10));
    std::jthread waiter([&] { pace->waitUntilCaughtUp(60s); });
    EXPECT_FALSE(isBehindAfter(0, 1));
    waiter.join();
    EXPECT_FALSE(isBehindAfter(10, 0));
    EXPECT_TRUE(isBehindAfter(1, 0));
    session->close();
    EXPECT_FALSE(pace->isBehind());
    EXPECT_FALSE(other->pace()->isBehind());
}

TEST_F(ClientSessionTest, endsWhenItIsFullOfWhatMustNotBeLost) {
    int wakeUps = 0;
    const auto session = openFor(3);
    publish({"output 1", "completion 2"});
    session->setWakeUp([&] { ++wakeUps; });
    publish({largeCompletion, largeCompletion});
    EXPECT_EQ(session->closeReason(), "its queue is full of messages that must not be lost");
    EXPECT_EQ(wakeUps, 2);  // by setWakeUp, and by the end
    EXPECT_EQ(service_.metrics().openSessions, 0U);
    EXPECT_THAT(taken(*session), ElementsAre("output 1", "completion 2"));
    EXPECT_THAT(ended_, IsEmpty());
    EXPECT_TRUE(session->take(1, 0ms).isClosed);
    EXPECT_THAT(ended_, ElementsAre("/eval/response/*"));
}

TEST_F(ClientSessionTest, endsWhenItStaysFullForTooLong) {
    const auto session = openFor(1), silent = openFor(1);
    const auto overfill = [&](std::chrono::milliseconds later) {
        now_ += later;
        publish({"output 1", "output 2"});
    };
    overfill(0ms);
    overfill(30s);
    taken(*session);  // not full any more
    overfill(1s);
    EXPECT_EQ(silent->closeReason(), "its queue has been full for too long");
    overfill(30s);
    service_.sweep();
    EXPECT_FALSE(session->isClosed());
    EXPECT_THAT(ended_, ElementsAre("/eval/response/*"));
    now_ += 1ms;
    service_.sweep();  // though nothing is published
    EXPECT_TRUE(session->isClosed());
    EXPECT_THAT(ended_, ElementsAre("/eval/response/*", "/eval/response/*"));
}

}  // namespace
