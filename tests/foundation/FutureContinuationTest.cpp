#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "connector/Promise.h"
#include "thrownText.h"

namespace {

using connector::Future;
using connector::Promise;

struct OrderCase {
    std::string name;
    std::string outcome;
    std::function<void(std::optional<Promise<std::string>>&)> resolve;
};

class FutureContinuationTest : public testing::TestWithParam<OrderCase> {
protected:
    /// Attaches a continuation that records what it read and on which thread.
    void attach() {
        future_.then([this](Future<std::string> resolved) {
            EXPECT_TRUE(resolved.isReady());
            ++calls_;
            thread_ = std::this_thread::get_id();
            std::string value;
            const auto error = thrownText([&] { value = resolved.get(); });
            outcome_ = value.empty() ? error : value;
        });
    }
    std::thread::id resolveElsewhere() {
        std::thread resolver([this] { GetParam().resolve(promise_); });
        const auto id = resolver.get_id();
        resolver.join();
        return id;
    }

    std::optional<Promise<std::string>> promise_{std::in_place};
    Future<std::string> future_ = promise_->getFuture();
    int calls_ = 0;
    std::thread::id thread_;
    std::string outcome_;
};

TEST_P(FutureContinuationTest, attachedBeforeRunsOnTheResolvingThread) {
    attach();
    EXPECT_EQ(calls_, 0);
    EXPECT_EQ(resolveElsewhere(), thread_);
    promise_.reset();
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(outcome_, GetParam().outcome);
}

TEST_P(FutureContinuationTest, attachedAfterRunsAtOnceOnTheAttachingThread) {
    resolveElsewhere();
    attach();
    EXPECT_EQ(thread_, std::this_thread::get_id());
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(outcome_, GetParam().outcome);
    EXPECT_THROW(future_.get(), std::runtime_error);  // the continuation has claimed it
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, FutureContinuationTest,
    testing::Values(OrderCase{"Value", "text", [](auto& promise) { promise->setValue("text"); }},
                    OrderCase{"Error", "failed",
                              [](auto& promise) {
                                  promise->setException(
                                      std::make_exception_ptr(std::runtime_error("failed")));
                              }},
                    OrderCase{"Destroyed", "Promise destroyed before it provided a value.",
                              [](auto& promise) { promise.reset(); }}),
    [](const auto& info) { return info.param.name; });

TEST(FutureThenTest, aPromiseCanBeCarriedAndChained) {
    Promise<int> first;
    Promise<std::string> second;
    auto result = second.getFuture();
    first.getFuture().then([next = std::move(second)](Future<int> number) mutable {
        next.setValue(std::to_string(number.get()));
    });
    first.setValue(7);
    EXPECT_EQ(result.get(), "7");
}

TEST(FutureThenTest, mayHoldTheLastReferencesToPromiseAndState) {
    auto promise = std::make_shared<Promise<int>>();
    const std::weak_ptr state = promise->getState();
    auto& last = *promise;
    auto future = promise->getFuture();
    future.then([owner = std::move(promise)](Future<int> number) mutable {
        owner.reset();
        EXPECT_EQ(number.get(), 3);
    });
    future = Future<int>();
    last.setValue(3);
    EXPECT_TRUE(state.expired());
}

TEST(FutureThenTest, aCancelledFutureDestroysItsContinuationUncalled) {
    for (const bool isCancelledBefore : {true, false}) {
        Promise<void> promise;
        auto future = promise.getFuture();
        bool isCalled = false;
        auto captured = std::make_shared<int>();
        const std::weak_ptr watch = captured;
        if (isCancelledBefore) future.cancel();
        future.then([&isCalled, held = std::move(captured)](const Future<void>&) { isCalled = true; });
        future.cancel();
        EXPECT_TRUE(watch.expired());
        promise.setValue();
        EXPECT_FALSE(isCalled);
        EXPECT_EQ(thrownText([&] { future.get(); }),
                  "Future already returned it's value or has an associated continuation.");
    }
}

TEST(FutureThenTest, anUnreadOutcomeCanBeReadAfterTheContinuation) {
    Promise<int> promise;
    auto future = promise.getFuture();
    future.then([](const Future<int>&) {});
    promise.setValue(5);
    EXPECT_EQ(promise.getFuture().get(), 5);
    EXPECT_THROW(future.get(), std::runtime_error);
}

TEST(FutureThenTest, whatItThrowsReachesWhoeverRanItAndTheStateStays) {
    const auto fail = [](const Future<int>&) { throw std::runtime_error("from the continuation"); };
    Promise<int> promise;
    auto future = promise.getFuture();
    future.then(fail);
    EXPECT_EQ(thrownText([&] { promise.setValue(1); }), "from the continuation");
    EXPECT_EQ(thrownText([&] { future.then(fail); }), "from the continuation");
    EXPECT_EQ(future.get(), 1);

    std::optional<Promise<int>> dropped(std::in_place);
    auto orphan = dropped->getFuture();
    orphan.then(fail);
    EXPECT_NO_THROW(dropped.reset());
    EXPECT_EQ(thrownText([&] { orphan.get(); }), "Promise destroyed before it provided a value.");
}

}  // namespace
