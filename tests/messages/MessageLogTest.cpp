#include <regex>

#include <gtest/gtest.h>

#include "messages/LocalMessageService.h"

namespace {

using messages::ClientSession;
using messages::LocalMessageService;
using messages::MessageServiceOptions;
using Texts = std::vector<std::string>;

const std::string output = "/eval/response/output";
const std::string completion = "/eval/response/completion";

/// The data of what waits for the session, each with the number that it carries.
Texts taken(ClientSession& session) {
    static const std::regex numbered(R"re("seq":(\d+))re");
    Texts texts;
    for (const auto& frame : session.take(1 << 20, std::chrono::milliseconds(0)).frames) {
        std::smatch number;
        const bool isNumbered = std::regex_search(frame->text(), number, numbered);
        texts.push_back(std::string(frame->data()) + (isNumbered ? " " + number.str(1) : ""));
    }
    return texts;
}

class MessageLogTest : public testing::Test {
protected:
    void publish(const std::string& channel, const std::string& data) {
        service_->publish(channel, connector::common::DataBuffer(data));
    }
    std::shared_ptr<ClientSession> openAfter(std::uint64_t number, const std::string& pattern = "/eval/**") {
        const auto session = service_->openSession();
        session->subscribe({pattern}, number);
        return session;
    }
    Texts playedAfter(std::uint64_t number, const std::string& pattern = "/eval/**") {
        return taken(*openAfter(number, pattern));
    }

    // A short message takes more than 300 bytes of the log.
    std::unique_ptr<LocalMessageService> service_ =
        std::make_unique<LocalMessageService>(MessageServiceOptions{.firstNumber = 1, .logBytes = 400});
};

TEST_F(MessageLogTest, playsWhatIsKeptBeforeWhatIsNewAndEachMessageOnce) {
    publish(output, "\"a\"");
    publish("/elsewhere", "0");
    publish(completion, "true");
    EXPECT_EQ(service_->metrics().framesBuilt, 0U);
    const auto session = service_->openSession();
    session->subscribe({"/eval/**", output, "/elsewhere"}, 0);
    publish(output, "\"b\"");
    EXPECT_EQ(service_->metrics().framesBuilt, 1U);
    EXPECT_EQ(taken(*session), (Texts{"\"a\" 1", "true 2", "\"b\" 3"}));
    session->subscribe({"/eval/**"}, 0);
    EXPECT_EQ(taken(*session), Texts{});
    EXPECT_EQ(playedAfter(1), (Texts{"true 2", "\"b\" 3"}));
    EXPECT_EQ(playedAfter(0, completion), (Texts{"true 2"}));
    EXPECT_EQ(playedAfter(3), Texts{});
    EXPECT_EQ(playedAfter(99), playedAfter(0));  // of another service
}

TEST_F(MessageLogTest, namesTheGapToAnEarlierService) {
    service_ = std::make_unique<LocalMessageService>(MessageServiceOptions{.firstNumber = 1000});
    publish(output, "1");
    EXPECT_EQ(playedAfter(0), Texts{"1 1000"});
    EXPECT_EQ(playedAfter(999), Texts{"1 1000"});
    EXPECT_EQ(playedAfter(7), (Texts{R"({"from":8,"to":999,"bytes":0})", "1 1000"}));
}

TEST_F(MessageLogTest, losesTheOldestOfEachKindAndNamesTheGapToWhoeverSubscribes) {
    const std::string event = "/eventmgr/0/a",
                      other = "/eventmgr/0/" + std::string(std::size_t{5} << 20, 'b');
    const auto gap = [](int from, int to, int bytes) {
        return R"({"from":)" + std::to_string(from) + R"(,"to":)" + std::to_string(to) + R"(,"bytes":)" +
               std::to_string(bytes) + "}";
    };
    const auto expect = [&](std::uint64_t number, const std::string& pattern, const std::string& expected) {
        const Texts played = playedAfter(number, pattern);
        EXPECT_EQ(played.empty() ? "" : played[0], expected) << number << " " << pattern;
    };
    for (const auto* channel : {&output, &completion, &event, &output, &output, &output, &event, &event}) {
        publish(*channel, "\"12\"");
    }
    EXPECT_EQ(playedAfter(0, "/**"),
              (Texts{gap(1, 4, 12), "\"12\" 2", "\"12\" 5", "\"12\" 6", "\"12\" 7", "\"12\" 8"}));
    expect(0, "/eval/**", gap(1, 4, 8));
    expect(1, output, gap(4, 4, 4));
    expect(4, output, "\"12\" 5");
    expect(0, completion, "\"12\" 2");
    expect(0, "/eventmgr/**", gap(3, 3, 4));
    expect(3, "/**", gap(4, 4, 4));
    expect(0, "/eventmgr/0/b", "");
    // From here on the losses are known by their kind alone.
    for (const auto* channel : {&other, &event, &event}) publish(*channel, "\"12\"");
    expect(0, "/eval/response/*", gap(1, 4, 8));
    expect(2, output, gap(3, 4, 8));
    expect(4, output, "\"12\" 5");
    expect(0, completion, "\"12\" 2");
    expect(0, "/eventmgr/0/b", gap(3, 9, 16));
    expect(8, event, gap(9, 9, 16));
}

TEST_F(MessageLogTest, numbersWhatASlowSessionLoses) {
    const auto session = service_->openSession({.queueBytes = 200});
    session->subscribe("/**");
    for (const auto* data : {"1", "2", "3", "4"}) publish("/eventmgr/0/a", data);
    publish("/elsewhere", "0");
    EXPECT_EQ(taken(*session), (Texts{R"({"channel":"/eventmgr/**","messages":2,"bytes":2,"from":1,"to":2})",
                                      "3 3", "4 4", "0"}));
}

TEST_F(MessageLogTest, keepsTheNewestMessageHoweverLarge) {
    const std::string large = '"' + std::string(100, 'x') + '"';
    for (const auto* channel : {&output, &completion, &output, &completion}) publish(*channel, large);
    EXPECT_EQ(playedAfter(0), (Texts{R"({"from":1,"to":2,"bytes":204})", large + " 3", large + " 4"}));
}

TEST_F(MessageLogTest, isBoundedInWhatMustNotBeLostAndPlaysNoMoreThanAnEmptyQueueTakes) {
    service_ = std::make_unique<LocalMessageService>(MessageServiceOptions{.firstNumber = 1});
    for (int i = 0; i < 10'003; ++i) publish(completion, "1");
    const Texts played = playedAfter(0);
    EXPECT_EQ(played.front(), R"({"from":1,"to":3,"bytes":3})");
    EXPECT_EQ(played.at(1), "1 4");
    const std::string almostAll((std::size_t{4} << 20) - 400, '1');
    for (const auto* channel : {&output, &completion, &output, &completion}) publish(*channel, almostAll);
    const auto session = openAfter(0);
    EXPECT_EQ(session->closeReason(), "");
    EXPECT_GT(session->queuedBytes(), 2 * almostAll.size());
}

TEST_F(MessageLogTest, leavesMembersAsTheyWerePublished) {
    const auto session = openAfter(0);
    session->publish(output, "1", nullptr, R"(,"id":"7")");
    session->publish(output, "2", nullptr, R"(,"ext":{"x":3})");
    const auto frames = session->take(1 << 20, std::chrono::milliseconds(0)).frames;
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0]->text(),
              R"({"channel":"/eval/response/output","data":1,"id":"7","ext":{"connector":{"seq":1}}})");
    EXPECT_EQ(frames[1]->text(), R"({"channel":"/eval/response/output","data":2,"ext":{"x":3}})");
}

}  // namespace
