// What a message service does for services and clients, whichever it is.

#include "MessageServiceContract.h"

#include <atomic>
#include <latch>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

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

class MessageServiceContract : public testing::TestWithParam<contract::MessageServiceCase> {
protected:
    void publish(const std::string& channel, const std::string& data = "1") {
        service_->service().publish(channel, DataBuffer(data)).get();
    }
    Token record(const std::string& pattern, const std::string& name) {
        return service_->service().subscribe(
            pattern, [this, name](const JsonMessage& message) { log_.push_back(name + message.data); });
    }
    Token watch(const std::string& pattern) {
        return service_->service().watch(
            pattern,
            [this](const SubscribeEvent& event) { log_.push_back(event.clientType + "+" + event.channel); },
            [this](const UnsubscribeEvent& event) {
                log_.push_back(event.clientType + "-" + event.channel);
            });
    }
    std::unique_ptr<contract::Client> open(const std::string& clientType = "c") {
        return service_->connect(clientType);
    }

    const std::unique_ptr<contract::MessageServiceWithClients> service_ = GetParam().make();
    std::vector<std::string> log_;
};

TEST_P(MessageServiceContract, deliversToThePatternsThatMatchInTheOrderOfSubscription) {
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

TEST_P(MessageServiceContract, refusesWhatIsNoNameNoPatternAndNoMessage) {
    EXPECT_THROW(service_->service().publish("/a/*", DataBuffer("1")), std::invalid_argument);
    EXPECT_THROW(service_->service().publish("/a", DataBuffer()), std::invalid_argument);
    EXPECT_THROW(record("/a/", ""), std::invalid_argument);
    EXPECT_THROW(watch("a"), std::invalid_argument);
    EXPECT_THROW(open()->subscribe("/**/a"), std::invalid_argument);
}

TEST_P(MessageServiceContract, givesHandlersTheContextOfThePublisher) {
    const auto context = std::make_shared<connector::common::ContextState>();
    std::vector<std::shared_ptr<connector::common::ContextState>> seen;
    const Token token = service_->service().subscribe(
        "/a", [&](const JsonMessage& message) { seen.push_back(message.context); });
    publish("/a");
    const connector::common::CurrentContext current(context);
    publish("/a");
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_NE(seen[0], nullptr);
    EXPECT_EQ(seen[1], context);
}

TEST_P(MessageServiceContract, goesOnAfterAHandlerThatThrows) {
    const Token failing =
        service_->service().subscribe("/a", [](const JsonMessage&) { throw std::runtime_error("x"); });
    const Token alsoFailing = service_->service().subscribe("/a", [](const JsonMessage&) { throw 1; });
    const Token next = record("/a", "next");
    publish("/a");
    EXPECT_THAT(log_, ElementsAre("next1"));
}

TEST_P(MessageServiceContract, letsAHandlerEndItsOwnSubscriptionAndTheNextAndPublish) {
    Token own;
    Token next;
    own = service_->service().subscribe("/a", [&](const JsonMessage&) {
        own.reset();
        next.reset();
        publish("/a", "nested");
    });
    next = record("/a", "next");
    const Token last = record("/a", "last");
    publish("/a", "1");
    EXPECT_THAT(log_, ElementsAre("lastnested", "last1"));
}

TEST_P(MessageServiceContract, endsASubscriptionOnlyWhenItsHandlerOnAnotherThreadHasReturned) {
    Gate gate;
    bool hasReturned = false;
    Token slow = service_->service().subscribe("/a", [&](const JsonMessage&) {
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

TEST_P(MessageServiceContract, letsHandlersEndEachOthersSubscriptionsAtTheSameTime) {
    std::latch areInside(3);
    std::vector<Token> tokens(3);
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        tokens[i] = service_->service().subscribe("/" + std::to_string(i), [&, i](const JsonMessage&) {
            areInside.arrive_and_wait();
            tokens[(i + 1) % tokens.size()].reset();
        });
    }
    onThreads(3, [this](int number) { publish("/" + std::to_string(number)); });
    for (int i = 0; i < 3; ++i) publish("/" + std::to_string(i));  // to nobody
}

TEST_P(MessageServiceContract, tellsWatchersOfWhatCanMatch) {
    const Token watcher = watch("/eval/**");
    const auto session = open();
    for (const auto* pattern : {"/eval/a", "/eval", "/other/**", "/*/b", "/**", "/eval/a"}) {
        EXPECT_TRUE(session->subscribe(pattern));
    }
    EXPECT_TRUE(session->unsubscribe("/eval/a"));
    EXPECT_TRUE(session->unsubscribe("/eval/a"));
    EXPECT_TRUE(session->unsubscribe("/other/**"));
    EXPECT_THAT(log_, ElementsAre("c+/eval/a", "c+/*/b", "c+/**", "c-/eval/a"));
}

TEST_P(MessageServiceContract, tellsALateWatcherOfWhatIsThere) {
    const auto session = open();
    const auto closed = open("closed");
    closed->subscribe("/a/1");
    closed->close();
    for (const auto* pattern : {"/a/3", "/a/2", "/b", "/a/1"}) session->subscribe(pattern);
    session->unsubscribe("/a/2");
    const Token watcher = watch("/a/*");
    EXPECT_THAT(log_, ElementsAre("c+/a/3", "c+/a/1"));
}

TEST_P(MessageServiceContract, tellsWatchersOfEverySubscriptionOfASessionThatCloses) {
    std::vector<std::string> ids;
    const Token watcher = watch("/**");
    const Token idWatcher = service_->service().watch(
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

TEST_P(MessageServiceContract, tellsWhatAWatchersHandlerChangesAfterwards) {
    const auto session = open();
    Token inner;
    const Token outer = service_->service().watch(
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

TEST_P(MessageServiceContract, tellsNobodyAfterTheWatchHasEnded) {
    const auto session = open();
    Token own;
    own = service_->service().watch(
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

TEST_P(MessageServiceContract, tellsOneClientsChangesInTheirOrderWhicheverThreadsTell) {
    constexpr int rounds = 200;
    std::map<std::string, int> held;  // no lock: one notice at a time
    const Token watcher = service_->service().watch(
        "/a", [&](const SubscribeEvent& event) { EXPECT_EQ(++held[event.clientId], 1); },
        [&](const UnsubscribeEvent& event) { EXPECT_EQ(--held[event.clientId], 0); });
    const auto shared = open();
    constexpr int threadCount = 4;
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

TEST_P(MessageServiceContract, hasHadWatchersToldWhenSubscribeReturns) {
    Gate telling;
    std::atomic<int> told{0};
    const Token watcher = service_->service().watch(
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

class LocalClient : public contract::Client {
public:
    explicit LocalClient(std::shared_ptr<messages::ClientSession> session) : session_(std::move(session)) {}
    std::string id() const override { return session_->id(); }
    bool subscribe(const std::string& pattern) override { return session_->subscribe(pattern); }
    bool unsubscribe(const std::string& pattern) override { return session_->unsubscribe(pattern); }
    void close() override { session_->close(); }

private:
    const std::shared_ptr<messages::ClientSession> session_;
};

class LocalService : public contract::MessageServiceWithClients {
public:
    connector::message_service::MessageService& service() override { return service_; }
    std::unique_ptr<contract::Client> connect(const std::string& clientType) override {
        return std::make_unique<LocalClient>(service_.openSession({.clientType = clientType}));
    }

private:
    messages::LocalMessageService service_;
};

INSTANTIATE_TEST_SUITE_P(Services, MessageServiceContract,
                         testing::Values(contract::MessageServiceCase{
                             "Local", [] { return std::make_unique<LocalService>(); }}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
