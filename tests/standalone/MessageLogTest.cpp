#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "MessageLog.h"
#include "messages/LocalMessageService.h"

using connector::common::DataBuffer;
using messages::ClientSession;
using messages::LocalMessageService;
using messages::MessageLog;
using messages::MessageServiceOptions;

namespace {

constexpr const char* output = "/eval/response/output";
constexpr const char* completion = "/eval/response/completion";

/// The data of what waits for the session, with the number that it carries.
std::vector<std::string> taken(ClientSession& session) {
    std::vector<std::string> texts;
    for (const auto& frame : session.take(1 << 20, std::chrono::milliseconds(0)).frames) {
        const std::string& text = frame->text();
        const auto number = text.find(R"("seq":)");
        texts.push_back(std::string(frame->data()) +
                        (number == std::string::npos
                             ? ""
                             : " " + text.substr(number + 6, text.find('}', number) - number - 6)));
    }
    return texts;
}

class MessageLogTest : public testing::Test {
protected:
    MessageLogTest() {
        MessageServiceOptions options;
        options.logBytes = 400;  // a short message takes more than 300
        options.firstNumber = 1;
        service = std::make_unique<LocalMessageService>(options);
    }
    void publish(const char* channel, const std::string& data) {
        service->publish(channel, DataBuffer(data));
    }
    std::vector<std::string> playedAfter(std::uint64_t number, const std::string& pattern = "/eval/**") {
        const auto session = service->openSession();
        session->subscribe({pattern}, number);
        return taken(*session);
    }

    std::unique_ptr<LocalMessageService> service;
};

using Texts = std::vector<std::string>;

TEST_F(MessageLogTest, playsWhatIsKeptBeforeWhatIsNew) {
    publish(output, "\"a\"");
    publish("/elsewhere", "0");
    publish(completion, "true");
    EXPECT_EQ(service->metrics().framesBuilt, 0U);
    const auto session = service->openSession();
    session->subscribe({"/eval/**"}, 0);
    publish(output, "\"b\"");
    EXPECT_EQ(service->metrics().framesBuilt, 1U);
    EXPECT_EQ(taken(*session), (Texts{"\"a\" 1", "true 2", "\"b\" 3"}));
    EXPECT_EQ(playedAfter(1), (Texts{"true 2", "\"b\" 3"}));
    EXPECT_EQ(playedAfter(0, completion), (Texts{"true 2"}));
    EXPECT_EQ(playedAfter(3), Texts{});
    EXPECT_EQ(playedAfter(99), playedAfter(0));  // of another service
    const auto fresh = service->openSession();
    fresh->subscribe("/eval/**");
    EXPECT_EQ(taken(*fresh), Texts{});
}

TEST_F(MessageLogTest, playsAMessageOnceHoweverManyPatternsMatch) {
    publish(output, "1");
    const auto session = service->openSession();
    session->subscribe({"/eval/**", output, "/elsewhere"}, 0);
    EXPECT_EQ(taken(*session), Texts{"1 1"});
    session->subscribe({"/eval/**"}, 0);
    EXPECT_EQ(taken(*session), Texts{});
}

TEST_F(MessageLogTest, namesTheGapToAnEarlierService) {
    MessageServiceOptions options;
    options.firstNumber = 1000;
    service = std::make_unique<LocalMessageService>(options);
    publish(output, "1");
    EXPECT_EQ(playedAfter(0), Texts{"1 1000"});
    EXPECT_EQ(playedAfter(999), Texts{"1 1000"});
    EXPECT_EQ(playedAfter(7), (Texts{R"({"from":8,"to":999,"bytes":0})", "1 1000"}));
}

TEST_F(MessageLogTest, losesOldTextAloneAndNamesTheGapOnce) {
    for (int i = 0; i < 8; ++i) {
        publish(output, "\"1234\"");
        if (i == 1) publish(completion, "true");
    }
    EXPECT_EQ(playedAfter(0),
              (Texts{R"({"from":1,"to":7,"bytes":36})", "true 3", "\"1234\" 8", "\"1234\" 9"}));
    EXPECT_EQ(playedAfter(5), (Texts{R"({"from":6,"to":7,"bytes":12})", "\"1234\" 8", "\"1234\" 9"}));
    EXPECT_EQ(playedAfter(7), (Texts{"\"1234\" 8", "\"1234\" 9"}));
}

TEST_F(MessageLogTest, keepsTheNewestMessageHoweverLarge) {
    const std::string large = '"' + std::string(100, 'x') + '"';
    for (const auto* channel : {output, completion}) {
        publish(channel, large);
        EXPECT_EQ(playedAfter(0, channel).back().substr(0, large.size()), large) << channel;
    }
    publish(output, large);
    publish(completion, large);
    EXPECT_EQ(playedAfter(0), (Texts{R"({"from":1,"to":2,"bytes":204})", large + " 3", large + " 4"}));
}

TEST_F(MessageLogTest, boundsWhatMustNotBeLost) {
    MessageServiceOptions options;
    options.firstNumber = 1;
    service = std::make_unique<LocalMessageService>(options);
    for (int i = 0; i < 10'003; ++i) publish(completion, "1");
    const auto session = service->openSession();
    session->subscribe({"/eval/**"}, 0);
    const auto played = taken(*session);
    EXPECT_EQ(played.front(), R"({"from":1,"to":3,"bytes":3})");
    EXPECT_EQ(played.at(1), "1 4");
}

TEST_F(MessageLogTest, playsNoMoreThanAnEmptyQueueTakes) {
    service = std::make_unique<LocalMessageService>();
    const std::string almostAll((std::size_t{4} << 20) - 400, '1');
    for (int i = 0; i < 3; ++i) {
        publish(output, almostAll);
        publish(completion, almostAll);
    }
    const auto session = service->openSession();
    session->subscribe({"/eval/**"}, 0);
    EXPECT_EQ(session->closeReason(), "");
    EXPECT_GT(session->queuedBytes(), 2 * almostAll.size());
}

TEST_F(MessageLogTest, leavesMembersAsTheyWerePublished) {
    const auto session = service->openSession();
    session->subscribe("/eval/**");
    session->publish(output, "1", nullptr, R"(,"id":"7")");
    session->publish(output, "2", nullptr, R"(,"ext":{"x":3})");
    const auto frames = session->take(1 << 20, std::chrono::milliseconds(0)).frames;
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0]->text(),
              R"({"channel":"/eval/response/output","data":1,"id":"7","ext":{"connector":{"seq":1}}})");
    EXPECT_EQ(frames[1]->text(), R"({"channel":"/eval/response/output","data":2,"ext":{"x":3}})");
}

}  // namespace
