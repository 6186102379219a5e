#include <atomic>
#include <latch>
#include <map>
#include <stdexcept>

#include <gmock/gmock.h>

#include "messages/LocalMessageService.h"
#include "support/threads.h"

namespace {

using connector::common::DataBuffer;
using connector::message_service::JsonMessage;
using connector::message_service::SubscribeEvent;
using connector::message_service::UnsubscribeEvent;
using testing::ElementsAre;
using Token = std::unique_ptr<connector::message_service::Subscription>;

class LocalMessageServiceTest : public testing::Test {
protected:
    void publish(const std::string& channel, const std::string& data = "1") {
        service_.publish(channel, DataBuffer(data)).get();
    }
    Token record(const std::string& pattern, const std::string& name) {
        return service_.subscribe(
            pattern, [this, name](const JsonMessage& message) { log_.push_back(name + message.data); });
    }
    Token watch(const std::string& pattern) {
        return service_.watch(
            pattern,
            [this](const SubscribeEvent& event) { log_.push_back(event.clientType + "+" + event.channel); },
            [this](const UnsubscribeEvent& event) {
                log_.push_back(event.clientType + "-" + event.channel);
            });
    }
    auto open(const std::string& clientType = "c") {
        return service_.openSession({.clientType = clientType});
    }

    messages::LocalMessageService service_;
    std::vector<std::string> log_;
};

TEST_F(LocalMessageServiceTest, deliversToThePatternsThatMatchInTheOrderOfSubscription) {
    const Token all = record("/**", "all");
    const Token exact = record("/a/b", "exact");
    const Token other = record("/a/c", "other");
    Token star = record("/a/*", "star");
    publish("/a/b", "1");
    publish("/a/b", "2");
    star.reset();
    publish("/a/b", "3");
    EXPECT_THAT(log_, ElementsAre("all1", "exact1", "star1", "all2", "exact2", "star2", "all3", "exact3"));
}

TEST_F(LocalMessageServiceTest, refusesWhatIsNoNameNoPatternAndNoMessage) {
    EXPECT_THROW(service_.publish("/a/*", DataBuffer("1")), std::invalid_argument);
    EXPECT_THROW(service_.publish("/a", DataBuffer()), std::invalid_argument);
    EXPECT_THROW(record("/a/", ""), std::invalid_argument);
    EXPECT_THROW(watch("a"), std::invalid_argument);
    EXPECT_THROW(open()->subscribe("/**/a"), std::invalid_argument);
    EXPECT_THROW(messages::LocalMessageService({.droppable = {"x"}}), std::invalid_argument);
}

TEST_F(LocalMessageServiceTest, givesHandlersTheContextOfThePublisher) {
    const auto context = std::make_shared<connector::common::ContextState>();
    std::vector<std::shared_ptr<connector::common::ContextState>> seen;
    const Token token =
        service_.subscribe("/a", [&](const JsonMessage& message) { seen.push_back(message.context); });
    publish("/a");
    const connector::common::CurrentContext current(context);
    publish("/a");
    EXPECT_THAT(seen, ElementsAre(testing::Ne(nullptr), context));
}

TEST_F(LocalMessageServiceTest, goesOnAfterAHandlerThatThrows) {
    const Token failing = service_.subscribe("/a", [](const JsonMessage&) { throw std::runtime_error("x"); });
    const Token alsoFailing = service_.subscribe("/a", [](const JsonMessage&) { throw 1; });
    const Token next = record("/a", "next");
    publish("/a");
    EXPECT_THAT(log_, ElementsAre("next1"));
}

TEST_F(LocalMessageServiceTest, letsAHandlerEndItsOwnSubscriptionAndTheNextAndPublish) {
    Token own, next;
    own = service_.subscribe("/a", [&](const JsonMessage&) {
        own.reset();
        next.reset();
        publish("/a", "nested");
    });
    next = record("/a", "next");
    const Token last = record("/a", "last");
    publish("/a", "1");
    EXPECT_THAT(log_, ElementsAre("lastnested", "last1"));
}

TEST_F(LocalMessageServiceTest, endsASubscriptionOnlyWhenItsHandlerOnAnotherThreadHasReturned) {
    Gate gate;
    bool hasReturned = false;
    Token slow = service_.subscribe("/a", [&](const JsonMessage&) {
        gate.pass();
        hasReturned = true;
    });
    std::thread publisher([&] { publish("/a"); });
    gate.awaitEntry();
    std::thread ender([&] {
        slow.reset();
        EXPECT_TRUE(hasReturned);
    });
    gate.open();
    ender.join();
    publisher.join();
}

TEST_F(LocalMessageServiceTest, letsHandlersEndEachOthersSubscriptionsAtTheSameTime) {
    std::latch areInside(3);
    std::vector<Token> tokens(3);
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        tokens[i] = service_.subscribe("/" + std::to_string(i), [&, i](const JsonMessage&) {
            areInside.arrive_and_wait();
            tokens[(i + 1) % tokens.size()].reset();
        });
    }
    onThreads(3, [this](int number) { publish("/" + std::to_string(number)); });
    for (int i = 0; i < 3; ++i) publish("/" + std::to_string(i));  // to nobody
}

TEST_F(LocalMessageServiceTest, tellsWatchersOfWhatCanMatch) {
    const Token watcher = watch("/eval/**");
    const auto session = open();
    for (const auto* pattern : {"/eval/a", "/eval", "/other/**", "/*/b", "/**", "/eval/a"})
        EXPECT_TRUE(session->subscribe(pattern));
    for (const auto* pattern : {"/eval/a", "/eval/a", "/other/**"})
        EXPECT_TRUE(session->unsubscribe(pattern));
    EXPECT_THAT(log_, ElementsAre("c+/eval/a", "c+/*/b", "c+/**", "c-/eval/a"));
}

TEST_F(LocalMessageServiceTest, tellsALateWatcherOfWhatIsThere) {
    const auto session = open();
    const auto closed = open("closed");
    closed->subscribe("/a/1");
    closed->close();
    for (const auto* pattern : {"/a/3", "/a/2", "/b", "/a/1"}) session->subscribe(pattern);
    session->unsubscribe("/a/2");
    const Token watcher = watch("/a/*");
    EXPECT_THAT(log_, ElementsAre("c+/a/3", "c+/a/1"));
}

TEST_F(LocalMessageServiceTest, tellsWatchersOfEverySubscriptionOfASessionThatCloses) {
    std::vector<std::string> ids;
    const Token watcher = watch("/**");
    const Token idWatcher = service_.watch(
        "/a", [&](const SubscribeEvent& event) { ids.push_back(event.clientId); },
        [&](const UnsubscribeEvent& event) { ids.push_back(event.clientId); });
    auto session = open();
    const std::string id = session->id();
    session->subscribe("/a");
    session->subscribe("/b/**");
    session->close();
    session->close();
    EXPECT_FALSE(session->subscribe("/c"));
    auto forgotten = open("forgotten");
    forgotten->subscribe("/c");
    forgotten.reset();
    EXPECT_THAT(log_, ElementsAre("c+/a", "c+/b/**", "c-/a", "c-/b/**", "forgotten+/c", "forgotten-/c"));
    EXPECT_THAT(ids, ElementsAre(id, id));
}

TEST_F(LocalMessageServiceTest, tellsWhatAWatchersHandlerChangesAfterwards) {
    const auto session = open();
    Token inner;
    const Token outer = service_.watch(
        "/a/**",
        [&](const SubscribeEvent& event) {
            log_.push_back("outer+" + event.channel);
            if (event.channel != "/a/1") return;
            session->subscribe("/a/2");
            inner = watch("/a/**");
            log_.push_back("outer.");
        },
        [](const UnsubscribeEvent&) {});
    session->subscribe("/a/1");
    EXPECT_THAT(log_, ElementsAre("outer+/a/1", "c+/a/1", "c+/a/2", "outer.", "outer+/a/2"));
}

TEST_F(LocalMessageServiceTest, tellsNobodyAfterTheWatchHasEnded) {
    const auto session = open();
    Token own;
    own = service_.watch(
        "/a/**", [&](const SubscribeEvent& event) { log_.push_back(event.channel); },
        [&](const UnsubscribeEvent& event) {
            log_.push_back(event.channel);
            own.reset();
        });
    session->subscribe("/a/1");
    session->subscribe("/a/2");
    session->close();
    EXPECT_THAT(log_, ElementsAre("/a/1", "/a/2", "/a/1"));
}

TEST_F(LocalMessageServiceTest, tellsOneClientsChangesInTheirOrderWhicheverThreadsTell) {
    constexpr int rounds = 200, threadCount = 4;
    std::map<std::string, int> held;  // no lock: one notice at a time
    const Token watcher = service_.watch(
        "/a", [&](const SubscribeEvent& event) { EXPECT_EQ(++held[event.clientId], 1); },
        [&](const UnsubscribeEvent& event) { EXPECT_EQ(--held[event.clientId], 0); });
    const auto shared = open();
    onThreads(threadCount, [&](int) {
        for (int round = 0; round < rounds; ++round) {
            const auto own = open();
            shared->subscribe("/a");
            own->subscribe("/a");
            shared->unsubscribe("/a");
        }
    });
    shared->close();
    EXPECT_EQ(held.size(), threadCount * rounds + 1U);
}

TEST_F(LocalMessageServiceTest, hasHadWatchersToldWhenSubscribeReturns) {
    Gate telling;
    std::atomic<int> told{0};
    const Token watcher = service_.watch(
        "/**",
        [&](const SubscribeEvent& event) {
            if (event.channel == "/slow") telling.pass();
            ++told;
        },
        [](const UnsubscribeEvent&) {});
    const auto session = open();
    std::thread slow([&] { session->subscribe("/slow"); });
    telling.awaitEntry();
    std::thread next([&] {
        session->subscribe("/next");
        EXPECT_EQ(told, 2);
    });
    telling.open();
    next.join();
    slow.join();
}

// For the sanitizers, and for the counts at the end.
TEST_F(LocalMessageServiceTest, survivesManyThreadsThatDoEverythingAtOnce) {
    constexpr int rounds = 100, threadCount = 4;
    std::atomic<int> subscriptions{0}, calls{0};
    const auto watcher = service_.watch(
        "/**", [&](const SubscribeEvent&) { ++subscriptions; },
        [&](const UnsubscribeEvent&) { --subscriptions; });
    onThreads(threadCount, [&](int number) {
        const std::string own = "/a/" + std::to_string(number);
        const auto slow = service_.openSession({.queueBytes = 200});
        slow->subscribe("/eval/**");
        for (int round = 0; round < rounds; ++round) {
            const auto token = service_.subscribe("/a/*", [&](const JsonMessage&) { ++calls; });
            const auto session = service_.openSession();
            session->setWakeUp([&] { ++calls; });
            session->subscribe("/a/**");
            session->subscribe(own);
            service_.publish(own, DataBuffer("1"));
            service_.publish("/eval/response/output", DataBuffer("1"));
            session->publish("/a/x", "2", nullptr);
            const auto late = service_.watch(
                own + "/*", [&](const SubscribeEvent&) { ++calls; }, [](const auto&) {});
            session->unsubscribe("/a/**");
            slow->take(100, std::chrono::milliseconds(0));
            if (round % 2 == 0) session->close();
            service_.sweep();
        }
    });
    EXPECT_EQ(subscriptions, 0);
    EXPECT_GE(calls, threadCount * rounds * 4);
    EXPECT_EQ(service_.metrics().openSessions, 0U);
    EXPECT_EQ(service_.metrics().messagesPublished, threadCount * rounds * 3U);
}

}  // namespace
