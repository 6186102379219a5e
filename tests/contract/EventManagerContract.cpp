// What an event manager does with the events that are raised, whichever it is.

#include <latch>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "events/LocalEventManager.h"
#include "nmutil/events.h"
#include "support/FakeEventMgr.h"
#include "support/threads.h"

namespace {

using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::eventmgr::ScopedConnection;
using numora::lang::correction::SuggestionEvent;

struct TaggedEvent : BaseEvent {
    static constexpr const char16_t* typeName = u"test::TaggedEvent";
    explicit TaggedEvent(std::u16string tag) : BaseEvent({typeName, {std::move(tag)}}) {}
};

/// Of the embedded interpreter where the parameter is true, else of the fake host.
class EventManagerContract : public testing::TestWithParam<bool> {
protected:
    template <class Action>
    ScopedConnection onSuggestion(Action action) {
        return ScopedConnection(events_->subscribe<SuggestionEvent>(std::move(action)));
    }

    const std::shared_ptr<EventMgr> events_ =
        GetParam() ? std::shared_ptr<EventMgr>(std::make_shared<standalone::LocalEventManager>())
                   : std::make_shared<fake::FakeEventMgr>();
    std::string log_;
};

TEST_P(EventManagerContract, deliversByTypeAndByTagUntilTheConnectionEnds) {
    const auto suggestions = onSuggestion([this](const SuggestionEvent&) { log_ += "s"; });
    ScopedConnection tagged(events_->subscribe<BaseEvent>([this](const BaseEvent&) { log_ += "t"; }, u"tag"));
    ScopedConnection all(events_->subscribe<BaseEvent>([this](const BaseEvent&) { log_ += "a"; }));
    events_->raise(SuggestionEvent(u"x"));
    events_->raise(TaggedEvent(u"tag"));
    events_->raise(TaggedEvent(u"other"));
    EXPECT_EQ(log_, "sataa");
    all.disconnect();
    tagged.disconnect();
    events_->raise(TaggedEvent(u"tag"));
    EXPECT_EQ(log_, "sataa");
}

TEST_P(EventManagerContract, callsTheOtherHandlersAfterOneThatThrows) {
    const auto failing = onSuggestion([](const SuggestionEvent&) { throw std::runtime_error("no luck"); });
    const auto alsoFailing = onSuggestion([](const SuggestionEvent&) { throw 42; });
    const auto connection = onSuggestion([this](const SuggestionEvent&) { log_ += "x"; });
    EXPECT_NO_THROW(events_->raise(SuggestionEvent(u"x")));
    EXPECT_EQ(log_, "x");
}

TEST_P(EventManagerContract, letsAHandlerEndItsOwnSubscriptionAndOthers) {
    ScopedConnection own, other;
    own.assign(events_->subscribe<SuggestionEvent>([&](const SuggestionEvent&) {
        log_ += "own";
        own.disconnect();
        other.disconnect();
        events_->raise(SuggestionEvent(u"nested"));
    }));
    other.assign(events_->subscribe<SuggestionEvent>([&](const SuggestionEvent&) { log_ += "other"; }));
    events_->raise(SuggestionEvent(u"x"));
    events_->raise(SuggestionEvent(u"y"));
    EXPECT_EQ(log_, "own");
}

TEST_P(EventManagerContract, endsASubscriptionOnlyWhenItsHandlerHasReturned) {
    Gate gate;
    bool hasReturned = false;
    auto slow = onSuggestion([&](const SuggestionEvent&) {
        gate.pass();
        hasReturned = true;
    });
    std::thread raiser([&] { events_->raise(SuggestionEvent(u"x")); });
    gate.awaitEntry();
    std::thread disconnecter([&] {
        slow.disconnect();
        EXPECT_TRUE(hasReturned);
    });
    gate.open();
    disconnecter.join();
    raiser.join();
}

// The handler is on its way to end the other subscription while another thread waits for the handler.
TEST_P(EventManagerContract, endsTwoSubscriptionsThatEndEachOtherOnTwoThreads) {
    for (int round = 0; round < 200; ++round) {
        ScopedConnection first, second;
        std::latch isInside(1);
        first.assign(events_->subscribe<SuggestionEvent>([&](const SuggestionEvent&) {
            isInside.count_down();
            second.disconnect();
        }));
        second.assign(events_->subscribe<SuggestionEvent>([](const SuggestionEvent&) {}));
        std::thread raiser([&] { events_->raise(SuggestionEvent(u"x")); });
        isInside.wait();
        first.disconnect();
        raiser.join();
    }
}

INSTANTIATE_TEST_SUITE_P(Managers, EventManagerContract, testing::Bool(),
                         [](const auto& info) { return info.param ? "Local" : "Fake"; });

}  // namespace
