#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "connector/Promise.h"
#include "thrownText.h"

namespace {

using connector::Future;
using connector::Promise;
using connector::detail::FutureStatus;
using enum connector::detail::FutureStatus;

enum class Event { SetValue, SetException, Destroy, Cancel };

const std::exception_ptr kError = std::make_exception_ptr(std::runtime_error("failed"));

struct TransitionCase {
    std::string name;
    FutureStatus from;
    Event event;
    FutureStatus to;
    std::string thrown;   // by the event
    std::string outcome;  // what get then yields: the value's or the exception's text
};

class FutureStateTest : public testing::TestWithParam<TransitionCase> {
protected:
    void bringTo(FutureStatus status) {
        if (status == Value) promise_->setValue("first");
        if (status == Error) promise_->setException(kError);
        if (status == Cancelled) future_.cancel();
    }
    void raise(Event event) {
        if (event == Event::SetValue) promise_->setValue("second");
        if (event == Event::SetException) promise_->setException(kError);
        if (event == Event::Destroy) promise_.reset();
        if (event == Event::Cancel) future_.cancel();
    }

    std::optional<Promise<std::string>> promise_{std::in_place};
    Future<std::string> future_ = promise_->getFuture();
};

TEST_P(FutureStateTest, followsTheTransitionTable) {
    EXPECT_FALSE(future_.isReady());
    for (const auto limit :
         {std::chrono::hours(0), std::chrono::hours(-3'000'000), std::chrono::hours::min()}) {
        EXPECT_FALSE(future_.waitFor(limit));  // in nanoseconds, some are below what there is
    }
    bringTo(GetParam().from);
    EXPECT_EQ(thrownText([this] { raise(GetParam().event); }), GetParam().thrown);

    EXPECT_EQ(future_.getState()->status, GetParam().to);
    EXPECT_TRUE(future_.isReady());
    EXPECT_TRUE(future_.waitFor(std::chrono::hours::max()));
    future_.wait();
    std::string value;
    const auto error = thrownText([&] { value = future_.get(); });
    EXPECT_EQ(value.empty() ? error : value, GetParam().outcome);
}

const std::string kNothing = "nothing thrown";
const std::string kResolved = "Promise already resolved.";
const std::string kCancelled = "Future has been cancelled.";
const std::string kDropped = "Promise destroyed before it provided a value.";

INSTANTIATE_TEST_SUITE_P(
    States, FutureStateTest,
    testing::Values(
        TransitionCase{"PendingSetValue", Pending, Event::SetValue, Value, kNothing, "second"},
        TransitionCase{"PendingSetException", Pending, Event::SetException, Error, kNothing, "failed"},
        TransitionCase{"PendingDestroy", Pending, Event::Destroy, Error, kNothing, kDropped},
        TransitionCase{"PendingCancel", Pending, Event::Cancel, Cancelled, kNothing, kCancelled},
        TransitionCase{"ValueSetValue", Value, Event::SetValue, Value, kResolved, "first"},
        TransitionCase{"ValueSetException", Value, Event::SetException, Value, kResolved, "first"},
        TransitionCase{"ValueDestroy", Value, Event::Destroy, Value, kNothing, "first"},
        TransitionCase{"ValueCancel", Value, Event::Cancel, Value, kNothing, "first"},
        TransitionCase{"ErrorSetValue", Error, Event::SetValue, Error, kResolved, "failed"},
        TransitionCase{"ErrorSetException", Error, Event::SetException, Error, kResolved, "failed"},
        TransitionCase{"ErrorDestroy", Error, Event::Destroy, Error, kNothing, "failed"},
        TransitionCase{"ErrorCancel", Error, Event::Cancel, Error, kNothing, "failed"},
        TransitionCase{"CancelledSetValue", Cancelled, Event::SetValue, Cancelled, kNothing, kCancelled},
        TransitionCase{"CancelledSetException", Cancelled, Event::SetException, Cancelled, kNothing,
                       kCancelled},
        TransitionCase{"CancelledDestroy", Cancelled, Event::Destroy, Cancelled, kNothing, kCancelled},
        TransitionCase{"CancelledCancel", Cancelled, Event::Cancel, Cancelled, kNothing, kCancelled}),
    [](const auto& info) { return info.param.name; });

TEST(PromiseTest, assignmentAbandonsTheStateThatItReplaces) {
    Promise<void> promise;
    auto replaced = promise.getFuture();
    Promise<void> other;
    auto kept = other.getFuture();
    promise = std::move(other);
    EXPECT_EQ(thrownText([&] { replaced.get(); }), kDropped);
    promise.setValue();
    EXPECT_EQ(thrownText([&] { kept.get(); }), kNothing);
}

/// Counts its moves down and throws from the last.
struct ThrowsOnMove {
    explicit ThrowsOnMove(int& movesLeft) : movesLeft(&movesLeft) {}
    ThrowsOnMove(ThrowsOnMove&& other) noexcept(false) : movesLeft(other.movesLeft) {
        if ((*movesLeft)-- == 0) throw std::runtime_error("cannot move");
    }
    int* movesLeft;
};

TEST(PromiseTest, aValueWhoseMoveFailsLeavesTheStatePending) {
    Promise<ThrowsOnMove> promise;
    auto future = promise.getFuture();
    int movesLeft = 0;
    // One attempt more gets one move further, to the last one, which is into the state.
    for (int attempt = 0; !future.isReady(); ++attempt) {
        ASSERT_LT(attempt, 10);
        movesLeft = attempt;
        const auto thrown = thrownText([&] { promise.setValue(ThrowsOnMove(movesLeft)); });
        EXPECT_EQ(thrown, future.isReady() ? kNothing : "cannot move");
    }
    movesLeft = 10;
    EXPECT_NO_THROW(future.get());
}

TEST(FutureTest, readyAndFailedFuturesCarryTheirOutcome) {
    auto base = connector::makeReadyFuture<std::shared_ptr<void>>(std::make_unique<int>(1));
    EXPECT_NE(base.get(), nullptr);
    EXPECT_TRUE(connector::makeReadyFuture(true).get());
    EXPECT_EQ(thrownText([] { connector::makeReadyFuture().get(); }), kNothing);
    EXPECT_EQ(thrownText([] { connector::makeFailedFuture<std::unique_ptr<int>>(kError).get(); }), "failed");
}

}  // namespace
