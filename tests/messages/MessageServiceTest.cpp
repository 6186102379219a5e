// What every message service promises: that of one process, and that of a worker, whose clients are behind a
// link.

#include <future>
#include <latch>
#include <map>
#include <stdexcept>

#include <gmock/gmock.h>

#include "messages/LocalMessageService.h"
#include "support/StandInGateway.h"
#include "support/threads.h"
#include "worker/Link.h"

namespace {

using connector::common::DataBuffer;
using connector::message_service::JsonMessage;
using connector::message_service::MessageService;
using connector::message_service::SubscribeEvent;
using connector::message_service::UnsubscribeEvent;
using testing::ElementsAre;
using Token = std::unique_ptr<connector::message_service::Subscription>;

/// A service, and the one that has its clients.
class Sides {
public:
    virtual ~Sides() = default;
    virtual MessageService& service() = 0;
    virtual messages::LocalMessageService& clients() = 0;
    /// Waits until the service has told what has happened to clients.
    virtual void settle() = 0;
};

class OneProcess : public Sides {
public:
    MessageService& service() override { return service_; }
    messages::LocalMessageService& clients() override { return service_; }
    void settle() override {}

private:
    messages::LocalMessageService service_;
};

class OverALink : public Sides {
public:
    MessageService& service() override { return *link_.messages(); }
    messages::LocalMessageService& clients() override { return gateway_.hub(); }
    void settle() override {
        service().watch(
            "/settled", [](const auto&) {}, [](const auto&) {});
    }

private:
    StandInGateway gateway_;
    worker::Link link_{gateway_.options()};
};

struct Kind {
    const char* name;
    std::unique_ptr<Sides> (*make)();
};

class MessageServiceTest : public testing::TestWithParam<Kind> {
protected:
    MessageService& service() { return sides_->service(); }
    void publish(const std::string& channel, const std::string& data = "1") {
        service().publish(channel, DataBuffer(data)).get();
    }
    Token record(const std::string& pattern, const std::string& name) {
        return service().subscribe(
            pattern, [this, name](const JsonMessage& message) { log_.push_back(name + message.data); });
    }
    Token watch(const std::string& pattern) {
        return service().watch(
            pattern,
            [this](const SubscribeEvent& event) { log_.push_back(event.clientType + "+" + event.channel); },
            [this](const UnsubscribeEvent& event) {
                log_.push_back(event.clientType + "-" + event.channel);
            });
    }
    auto open(const std::string& clientType = "c") {
        return sides_->clients().openSession({.clientType = clientType});
    }
    const std::vector<std::string>& log() {
        sides_->settle();
        return log_;
    }

    const std::unique_ptr<Sides> sides_ = GetParam().make();
    std::vector<std::string> log_;
};

TEST_P(MessageServiceTest, deliversToThePatternsThatMatchInTheOrderOfSubscription) {
    const Token all = record("/**", "all");
    const Token exact = record("/a/b", "exact");
    const Token other = record("/a/c", "other");
    Token star = record("/a/*", "star");
    publish("/a/b", "1");
    publish("/a/b", "2");
    star.reset();
    publish("/a/b", "3");
    EXPECT_THAT(log(), ElementsAre("all1", "exact1", "star1", "all2", "exact2", "star2", "all3", "exact3"));
}

TEST_P(MessageServiceTest, refusesWhatIsNoNameNoPatternAndNoMessage) {
    EXPECT_THROW(service().publish("/a/*", DataBuffer("1")), std::invalid_argument);
    EXPECT_THROW(service().publish("/a", DataBuffer()), std::invalid_argument);
    EXPECT_THROW(record("/a/", ""), std::invalid_argument);
    EXPECT_THROW(watch("a"), std::invalid_argument);
}

TEST_P(MessageServiceTest, givesHandlersTheContextOfThePublisher) {
    const auto context = std::make_shared<connector::common::ContextState>();
    std::vector<std::shared_ptr<connector::common::ContextState>> seen;
    const Token token =
        service().subscribe("/a", [&](const JsonMessage& message) { seen.push_back(message.context); });
    publish("/a");
    const connector::common::CurrentContext current(context);
    publish("/a");
    EXPECT_THAT(seen, ElementsAre(testing::Ne(nullptr), context));
}

TEST_P(MessageServiceTest, goesOnAfterAHandlerThatThrows) {
    const Token failing =
        service().subscribe("/a", [](const JsonMessage&) { throw std::runtime_error("x"); });
    const Token alsoFailing = service().subscribe("/a", [](const JsonMessage&) { throw 1; });
    const Token next = record("/a", "next");
    publish("/a");
    EXPECT_THAT(log(), ElementsAre("next1"));
}

TEST_P(MessageServiceTest, letsAHandlerEndItsOwnSubscriptionAndTheNextAndPublish) {
    Token own, next;
    own = service().subscribe("/a", [&](const JsonMessage&) {
        own.reset();
        next.reset();
        publish("/a", "nested");
    });
    next = record("/a", "next");
    const Token last = record("/a", "last");
    publish("/a", "1");
    EXPECT_THAT(log(), ElementsAre("lastnested", "last1"));
}

TEST_P(MessageServiceTest, endsASubscriptionOnlyWhenItsHandlerOnAnotherThreadHasReturned) {
    Gate gate;
    bool hasReturned = false;
    Token slow = service().subscribe("/a", [&](const JsonMessage&) {
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

TEST_P(MessageServiceTest, letsHandlersEndEachOthersSubscriptionsAtTheSameTime) {
    std::latch areInside(3);
    std::vector<Token> tokens(3);
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        tokens[i] = service().subscribe("/" + std::to_string(i), [&, i](const JsonMessage&) {
            areInside.arrive_and_wait();
            tokens[(i + 1) % tokens.size()].reset();
        });
    }
    onThreads(3, [this](int number) { publish("/" + std::to_string(number)); });
    for (int i = 0; i < 3; ++i) publish("/" + std::to_string(i));  // to nobody
}

TEST_P(MessageServiceTest, tellsWatchersOfWhatCanMatch) {
    const Token watcher = watch("/eval/**");
    const auto session = open();
    for (const auto* pattern : {"/eval/a", "/eval", "/other/**", "/*/b", "/**", "/eval/a"})
        EXPECT_TRUE(session->subscribe(pattern));
    for (const auto* pattern : {"/eval/a", "/eval/a", "/other/**"})
        EXPECT_TRUE(session->unsubscribe(pattern));
    EXPECT_THAT(log(), ElementsAre("c+/eval/a", "c+/*/b", "c+/**", "c-/eval/a"));
}

TEST_P(MessageServiceTest, tellsALateWatcherOfWhatIsThere) {
    const auto session = open();
    const auto closed = open("closed");
    closed->subscribe("/a/1");
    closed->close();
    for (const auto* pattern : {"/a/3", "/a/2", "/b", "/a/1"}) session->subscribe(pattern);
    session->unsubscribe("/a/2");
    const Token watcher = watch("/a/*");
    EXPECT_THAT(log(), ElementsAre("c+/a/3", "c+/a/1"));
}

TEST_P(MessageServiceTest, tellsWatchersOfEverySubscriptionOfASessionThatCloses) {
    std::vector<std::string> ids;
    const Token watcher = watch("/**");
    const Token idWatcher = service().watch(
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
    EXPECT_THAT(log(), ElementsAre("c+/a", "c+/b/**", "c-/a", "c-/b/**", "forgotten+/c", "forgotten-/c"));
    EXPECT_THAT(ids, ElementsAre(id, id));
}

TEST_P(MessageServiceTest, tellsWhatAWatchersHandlerChangesAfterwards) {
    const auto session = open();
    std::promise<void> last;  // over a link it comes when the handler is over
    Token inner;
    const Token outer = service().watch(
        "/a/**",
        [&](const SubscribeEvent& event) {
            log_.push_back("outer+" + event.channel);
            if (event.channel == "/a/2") last.set_value();
            if (event.channel != "/a/1") return;
            session->subscribe("/a/2");
            inner = watch("/a/**");
            log_.push_back("outer.");
        },
        [](const UnsubscribeEvent&) {});
    session->subscribe("/a/1");
    last.get_future().wait();
    EXPECT_THAT(log(), ElementsAre("outer+/a/1", "c+/a/1", "c+/a/2", "outer.", "outer+/a/2"));
}

TEST_P(MessageServiceTest, tellsNobodyAfterTheWatchHasEnded) {
    const auto session = open();
    Token own;
    own = service().watch(
        "/a/**", [&](const SubscribeEvent& event) { log_.push_back(event.channel); },
        [&](const UnsubscribeEvent& event) {
            log_.push_back(event.channel);
            own.reset();
        });
    session->subscribe("/a/1");
    session->subscribe("/a/2");
    session->close();
    EXPECT_THAT(log(), ElementsAre("/a/1", "/a/2", "/a/1"));
}

TEST_P(MessageServiceTest, tellsOneClientsChangesInTheirOrderWhicheverThreadsTell) {
    constexpr int rounds = 200, threadCount = 4;
    std::map<std::string, int> held;  // no lock: one notice at a time
    const Token watcher = service().watch(
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
    sides_->settle();
    EXPECT_EQ(held.size(), threadCount * rounds + 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Services, MessageServiceTest,
    testing::Values(
        Kind{"OneProcess", []() -> std::unique_ptr<Sides> { return std::make_unique<OneProcess>(); }},
        Kind{"OverALink", []() -> std::unique_ptr<Sides> { return std::make_unique<OverALink>(); }}),
    [](const auto& info) { return info.param.name; });

}  // namespace
