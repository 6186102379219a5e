#include <atomic>
#include <csignal>
#include <latch>
#include <mutex>
#include <set>
#include <stdexcept>

#include <gmock/gmock.h>

#include "events/LocalEventManager.h"
#include "nmutil/events.h"
#include "support/LogRecords.h"
#include "support/threads.h"

namespace {

using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::ScopedConnection;
using foundation::msg_svc::eventmgr::WatchToken;
using numora::lang::correction::SuggestionEvent;
using standalone::EventLimits;
using standalone::LocalEventManager;
using testing::ElementsAre;
using testing::HasSubstr;

class TaggedEvent : public BaseEvent {
public:
    static constexpr const char16_t* typeName = u"test::TaggedEvent";
    explicit TaggedEvent(std::u16string tag) : BaseEvent({typeName, {std::move(tag)}}) {}
};

class LocalEventManagerTest : public testing::Test {
private:
    std::mutex mutex_;
    std::u16string texts_;

protected:
    bool post(const std::u16string& text, std::size_t bytes = 0) {
        return events_->post(std::make_shared<SuggestionEvent>(text), bytes);
    }
    template <class... Around>
    void raise(const std::u16string& text, Around&&... around) {
        events_->raise(SuggestionEvent(text), std::forward<Around>(around)...);
    }
    template <class Handler>
    ScopedConnection onSuggestion(Handler handler) {
        return ScopedConnection(events_->subscribe<SuggestionEvent>(std::move(handler)));
    }
    /// Subscribes to suggestions, whose texts are kept; that of "gate" passes the gate first.
    ScopedConnection record() {
        return onSuggestion([this](const SuggestionEvent& event) {
            if (event.getText() == u"gate") gate_->pass();
            const std::lock_guard lock(mutex_);
            texts_ += event.getText();
        });
    }
    /// Lets a handler stand at the gate.
    void holdUp() {
        post(u"gate");
        gate_->awaitEntry();
    }
    std::u16string texts() {
        const std::lock_guard lock(mutex_);
        return texts_;
    }

    std::unique_ptr<Gate> gate_ = std::make_unique<Gate>();
    std::shared_ptr<LocalEventManager> events_ = std::make_shared<LocalEventManager>();
};

TEST_F(LocalEventManagerTest, deliversByTypeAndByTagUntilTheConnectionEnds) {
    std::string log;
    const WatchToken watched = events_->watch<SuggestionEvent>();
    const auto suggestions = onSuggestion([&](const SuggestionEvent&) { log += "s"; });
    ScopedConnection tagged(events_->subscribe<BaseEvent>([&](const BaseEvent&) { log += "t"; }, u"tag"));
    EXPECT_TRUE(watched.hasSubscriptions() && events_->watchTag(u"tag").hasSubscriptions());
    EXPECT_FALSE(events_->watch<BaseEvent>().hasSubscriptions());
    ScopedConnection all(events_->subscribe<BaseEvent>([&](const BaseEvent&) { log += "a"; }));
    const auto raiseAll = [this] {
        raise(u"x");
        for (const auto* tag : {u"tag", u"other"}) events_->raise(TaggedEvent(tag));
    };
    raiseAll();
    EXPECT_EQ(log, "sataa");
    all.disconnect();
    tagged.disconnect();
    EXPECT_FALSE(events_->watchTag(u"tag").hasSubscriptions());
    raiseAll();
    EXPECT_EQ(log, "sataas");
}

TEST_F(LocalEventManagerTest, runsHandlersOnOneThreadThatTakesNoSignalsOfTheInterpreter) {
    std::set<std::thread::id> threads;
    sigset_t blocked{};
    const auto connection = onSuggestion([&](const SuggestionEvent&) {
        threads.insert(std::this_thread::get_id());
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    });
    raise(u"x");
    std::thread([&] { raise(u"y"); }).join();
    EXPECT_EQ(threads.size(), 1U);
    EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
    EXPECT_TRUE(sigismember(&blocked, SIGINT) == 1 && sigismember(&blocked, SIGRTMIN) == 1);
}

TEST_F(LocalEventManagerTest, waitsForTheHandlersOfWhatIsRaisedAndKeepsTheOrderWithWhatIsPosted) {
    const auto connection = record();
    holdUp();
    post(u"1");
    std::atomic<bool> hasReturned{false};
    std::thread raiser([&] {
        raise(u"2", [&](const std::function<void()>& wait) {
            post(u"3");  // after the event, which has its place by now
            wait();
        });
        hasReturned = true;
        EXPECT_TRUE(texts().starts_with(u"gate12"));
    });
    EXPECT_FALSE(hasReturned);
    gate_->open();
    raiser.join();
    raise(u"4");
    EXPECT_EQ(texts(), u"gate1234");
}

TEST_F(LocalEventManagerTest, deliversLaterWhatAHandlerPosts) {
    const auto inner = record();
    const ScopedConnection outer(events_->subscribe<TaggedEvent>([&](const TaggedEvent&) {
        post(u"p");
        raise(u"r");
        EXPECT_EQ(texts(), u"r");
    }));
    events_->raise(TaggedEvent(u"x"));
    raise(u"e");
    EXPECT_EQ(texts(), u"rpe");
}

class FailingManager : public LocalEventManager {
public:
    ~FailingManager() override { stop(); }
    void processExceptionFromEventHandler(const std::string& stackTrace) override {
        LocalEventManager::processExceptionFromEventHandler(stackTrace);
        throw std::runtime_error("not even that");
    }
};

TEST_F(LocalEventManagerTest, logsWhatAHandlerThrowsWithTheCallsThatLedToItAndGoesOn) {
    const LogRecords log;
    events_ = std::make_shared<FailingManager>();
    const auto failing = onSuggestion([](const SuggestionEvent&) { throw std::runtime_error("no luck"); });
    const auto strange = onSuggestion([](const SuggestionEvent&) { throw 42; });
    const auto next = record();
    raise(u"x");
    EXPECT_THAT(
        log.lines(),
        ElementsAre(AllOf(HasSubstr("std::runtime_error: no luck\n"), HasSubstr("\n 3# ")),
                    HasSubstr("not even that"), HasSubstr("unknown type\n"), HasSubstr("not even that")));
    EXPECT_EQ(texts(), u"x");
}

TEST_F(LocalEventManagerTest, dropsWhatIsQueuedWhenItStopsAndLetsGoWhoWaits) {
    const LogRecords log;
    auto connection = record();
    holdUp();
    post(u"1");
    std::latch isWaiting(1);
    std::thread raiser([&] {
        raise(u"2", [&](const std::function<void()>& wait) {
            isWaiting.count_down();
            wait();
        });
    });
    isWaiting.wait();
    std::atomic<bool> hasStopped{false};
    std::thread stopper([&] {
        events_->stop();
        hasStopped = true;
    });
    raiser.join();
    EXPECT_FALSE(hasStopped);  // not before the handler has returned
    gate_->open();
    stopper.join();
    raise(u"3");
    post(u"4");
    EXPECT_EQ(texts(), u"gate");
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("2 events")));
    events_.reset();
    connection.disconnect();
}

TEST_F(LocalEventManagerTest, goesOnWithoutAHandlerThatTakesTooLongAndWaitsAgainWhenItHasEnded) {
    const LogRecords log;
    events_ =
        std::make_shared<LocalEventManager>(EventLimits{.handlerTimeout = std::chrono::milliseconds(20)});
    const auto connection = record();
    raise(u"gate");
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 200; ++i) raise(u".");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << "each was waited for";
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("SuggestionEvent")));
    gate_->open();
    std::latch hasCaughtUp(1);
    const ScopedConnection last(
        events_->subscribe<TaggedEvent>([&](const TaggedEvent&) { hasCaughtUp.count_down(); }));
    events_->post(std::make_shared<TaggedEvent>(u"x"));
    hasCaughtUp.wait();
    raise(u"end");
    EXPECT_EQ(texts(), u"gate" + std::u16string(200, u'.') + u"end");
}

TEST_F(LocalEventManagerTest, dropsWhatDoesNotFitAndLogsTheirNumberOnce) {
    std::u16string expected;
    for (const bool byBytes : {false, true}) {
        const LogRecords log;
        const std::size_t bytes = byBytes ? 10U : 0U;
        gate_ = std::make_unique<Gate>();
        events_ = std::make_shared<LocalEventManager>(byBytes ? EventLimits{.room = {.bytes = 25}}
                                                              : EventLimits{.room = {.events = 2}});
        const auto connection = record();
        holdUp();
        for (const auto* text : {u"1", u"2", u"3", u"4", u"5"}) post(text, bytes);
        std::thread raiser([&] { raise(u"raised"); });  // has its place all the same
        gate_->open();
        raiser.join();
        EXPECT_EQ(texts(), expected += u"gate12raised");
        post(u"6", bytes);
        raise(u"end");
        EXPECT_EQ(texts(), expected += u"6end");
        EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("3 events")));
    }
}

TEST_F(LocalEventManagerTest, makesWhoPostsInTurnWaitForRoom) {
    std::u16string expected;
    for (const bool hasOwner : {false, true}) {
        gate_ = std::make_unique<Gate>();
        events_ = std::make_shared<LocalEventManager>(hasOwner ? EventLimits{.ownerRoom = {9, 20}}
                                                               : EventLimits{.room = {.events = 2}});
        const auto connection = record();
        holdUp();
        int waits = 0;
        const auto postOne = [&](const char16_t* text) {
            const auto around = [&](const auto& wait) {
                if (++waits == 1) gate_->open();  // there is no room until the handler goes on
                wait();
            };
            events_->postBlocking(std::make_shared<SuggestionEvent>(text), 10, around, hasOwner);
        };
        for (const auto* text : {u"1", u"2", u"3", u"4", u"5"}) postOne(text);
        raise(u"end");
        EXPECT_EQ(texts(), expected += u"gate12345end");
        EXPECT_GE(waits, 1);
    }

    events_ = std::make_shared<LocalEventManager>(
        EventLimits{.room = {.events = 1}, .handlerTimeout = std::chrono::milliseconds(1)});
    gate_ = std::make_unique<Gate>();
    const auto stuck = record();
    holdUp();
    post(u"y");
    // Comes back all the same, and nobody waits again for the handler that takes so long.
    const auto late = std::make_shared<SuggestionEvent>(u"z");
    EXPECT_FALSE(events_->postBlocking(late, 0, [](const auto& wait) { wait(); }));
    EXPECT_FALSE(events_->postBlocking(late, 0, [](const auto&) { FAIL() << "waits again"; }));
    gate_->open();
}

}  // namespace
