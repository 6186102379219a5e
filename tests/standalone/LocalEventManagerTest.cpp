#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "events/LocalEventManager.h"
#include "numora/lang/correction/SuggestionEvent.h"

namespace {

using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::ScopedConnection;
using numora::lang::correction::SuggestionEvent;

class TaggedEvent : public BaseEvent {
public:
    static constexpr const char16_t* typeName = u"test::TaggedEvent";
    explicit TaggedEvent(std::u16string tag) : BaseEvent({typeName, {std::move(tag)}}) {}
};

class LocalEventManagerTest : public testing::Test {
protected:
    std::shared_ptr<standalone::LocalEventManager> events_ =
        std::make_shared<standalone::LocalEventManager>();
};

TEST_F(LocalEventManagerTest, deliversByTypeAndByTagUntilTheConnectionEnds) {
    std::string log;
    ScopedConnection suggestions(
        events_->subscribe<SuggestionEvent>([&](const SuggestionEvent&) { log += "s"; }));
    ScopedConnection tagged(events_->subscribe<BaseEvent>([&](const BaseEvent&) { log += "t"; }, u"tag"));
    ScopedConnection all(events_->subscribe<BaseEvent>([&](const BaseEvent&) { log += "a"; }));
    events_->raise(SuggestionEvent(u"x"));
    events_->raise(TaggedEvent(u"tag"));
    events_->raise(TaggedEvent(u"other"));
    EXPECT_EQ(log, "sataa");
    all.disconnect();
    tagged.disconnect();
    events_->raise(TaggedEvent(u"tag"));
    EXPECT_EQ(log, "sataa");
}

TEST_F(LocalEventManagerTest, survivesHandlersThatThrowRaiseAndDisconnect) {
    int calls = 0;
    ScopedConnection failing(events_->subscribe<SuggestionEvent>(
        [](const SuggestionEvent&) { throw std::runtime_error("handler"); }));
    ScopedConnection once;
    once.assign(events_->subscribe<SuggestionEvent>([&](const SuggestionEvent&) {
        ++calls;
        once.disconnect();
        events_->raise(SuggestionEvent(u"nested"));
    }));
    events_->raise(SuggestionEvent(u"x"));
    EXPECT_EQ(calls, 1);
}

TEST_F(LocalEventManagerTest, endsASubscriptionOnlyWhenItsHandlerHasReturned) {
    std::atomic<bool> isInside{false};
    std::atomic<bool> mayReturn{false};
    std::atomic<bool> hasReturned{false};
    ScopedConnection slow(events_->subscribe<SuggestionEvent>([&](const SuggestionEvent&) {
        isInside = true;
        while (!mayReturn) std::this_thread::yield();
        hasReturned = true;
    }));
    std::thread raiser([&] { events_->raise(SuggestionEvent(u"x")); });
    while (!isInside) std::this_thread::yield();
    std::thread disconnecter([&] {
        slow.disconnect();
        EXPECT_TRUE(hasReturned);
    });
    mayReturn = true;
    disconnecter.join();
    raiser.join();
}

}  // namespace
