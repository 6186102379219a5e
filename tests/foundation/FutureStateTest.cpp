#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include "connector/Promise.h"
#include "support/thrownText.h"

namespace {

using connector::Future;
using connector::Promise;
using connector::detail::FutureStatus;
using Channel = std::optional<Promise<std::string>>;

const std::string kNothing = "nothing thrown";
const std::string kDropped = "Promise destroyed before it provided a value.";
const std::string kTaken = "Future already returned it's value or has an associated continuation.";

std::exception_ptr error(const char* text) { return std::make_exception_ptr(std::runtime_error(text)); }
std::string outcomeOf(Future<std::string>& future) {
    std::string value;
    const auto thrown = thrownText([&] { value = future.get(); });
    return value.empty() ? thrown : value;
}

struct ResolveCase {
    std::string name;
    std::function<void(Channel&, Future<std::string>&)> resolve;
    FutureStatus status;
    std::string outcome;  ///< the text of the value or of the exception
};
const ResolveCase kSetValue{"SetValue", [](auto& promise, auto&) { promise->setValue("value"); },
                            FutureStatus::Value, "value"};
const ResolveCase kSetException{"SetException",
                                [](auto& promise, auto&) { promise->setException(error("failed")); },
                                FutureStatus::Error, "failed"};
const ResolveCase kDestroy{"Destroy", [](auto& promise, auto&) { promise.reset(); }, FutureStatus::Error,
                           kDropped};
const ResolveCase kCancel{"Cancel", [](auto&, auto& future) { future.cancel(); }, FutureStatus::Cancelled,
                          "Future has been cancelled."};

class FutureStateTest : public testing::TestWithParam<ResolveCase> {
protected:
    std::string resolve(const ResolveCase& by = GetParam()) {
        return thrownText([&] { by.resolve(promise_, future_); });
    }
    void attach() {
        future_.then([this](Future<std::string> resolved) {
            ++calls_;
            thread_ = std::this_thread::get_id();
            continued_ = outcomeOf(resolved);
        });
    }

    Channel promise_{std::in_place};
    Future<std::string> future_ = promise_->getFuture();
    int calls_ = 0;
    std::thread::id thread_;
    std::string continued_;
};

TEST_P(FutureStateTest, isResolvedByTheFirstOfTwo) {
    for (const ResolveCase* second : {&kSetValue, &kSetException, &kDestroy, &kCancel}) {
        promise_.emplace();
        future_ = promise_->getFuture();
        EXPECT_FALSE(future_.isReady() || future_.waitFor(std::chrono::hours(0)));
        EXPECT_FALSE(future_.waitFor(std::chrono::hours::min()));  // below what there is in nanoseconds
        EXPECT_EQ(resolve(), kNothing);
        const bool isSet = second == &kSetValue || second == &kSetException;
        const bool isRefused = isSet && GetParam().status != FutureStatus::Cancelled;
        if (promise_ || !isSet) {
            EXPECT_EQ(resolve(*second), isRefused ? "Promise already resolved." : kNothing) << second->name;
        }
        EXPECT_EQ(future_.getState()->status, GetParam().status) << second->name;
        EXPECT_TRUE(future_.isReady() && future_.waitFor(std::chrono::hours::max()));
        future_.wait();
        EXPECT_EQ(outcomeOf(future_), GetParam().outcome) << second->name;
    }
}

TEST_P(FutureStateTest, runsAContinuationOnceOnTheThreadThatResolvesOrElseAttaches) {
    const bool isCancelled = GetParam().status == FutureStatus::Cancelled;
    attach();
    std::thread resolver([this] { resolve(); });
    const auto id = resolver.get_id();
    resolver.join();
    EXPECT_EQ(thread_, isCancelled ? std::thread::id() : id);
    promise_.emplace();
    future_ = promise_->getFuture();
    resolve();
    attach();
    EXPECT_EQ(thread_, isCancelled ? std::thread::id() : std::this_thread::get_id());
    EXPECT_EQ(calls_, isCancelled ? 0 : 2);
    EXPECT_EQ(continued_, isCancelled ? "" : GetParam().outcome);
    EXPECT_EQ(outcomeOf(future_), kTaken);
}

INSTANTIATE_TEST_SUITE_P(Events, FutureStateTest,
                         testing::Values(kSetValue, kSetException, kDestroy, kCancel),
                         [](const auto& info) { return info.param.name; });

TEST(FutureUseTest, refusesWhatWasMovedFromOrUsedBefore) {
    const std::function<void(Promise<int>&)> ofPromise[] = {
        [](auto& promise) { promise.getFuture(); }, [](auto& promise) { promise.setValue(1); },
        [](auto& promise) { promise.setException(nullptr); }};
    for (const auto& operation : ofPromise) {
        Promise<int> promise;
        const Promise<int> newOwner(std::move(promise));
        // NOLINTNEXTLINE(bugprone-use-after-move)
        EXPECT_EQ(thrownText([&] { operation(promise); }), "Promise state isn't valid!");
    }
    const auto ignore = [](Future<int>) {};  // NOLINT(performance-unnecessary-value-param)
    const std::function<void(Future<int>&)> takes[] = {[](auto& future) { future.get(); },
                                                       [&](auto& future) { future.then(ignore); }};
    for (const auto& [take, again] : {std::pair(0, 1), std::pair(1, 0), std::pair(1, 1)}) {
        Promise<int> promise;
        auto future = promise.getFuture();
        EXPECT_EQ(thrownText([&] { promise.getFuture(); }), "Promise already returned a future.");
        if (take == 0) promise.setValue(1);
        takes[take](future);
        EXPECT_EQ(thrownText([&] { takes[again](future); }), kTaken);
        const Future<int> newOwner(std::move(future));
        // NOLINTNEXTLINE(bugprone-use-after-move)
        EXPECT_EQ(thrownText([&] { takes[again](future); }), "Future state isn't valid!");
    }
}

TEST(FutureThenTest, aCancelledFutureDestroysItsContinuation) {
    for (const bool isCancelledBefore : {true, false}) {
        Promise<void> promise;
        auto future = promise.getFuture();
        auto captured = std::make_shared<int>();
        const std::weak_ptr watch = captured;
        if (isCancelledBefore) future.cancel();
        future.then([held = std::move(captured)](const Future<void>&) {});
        future.cancel();
        EXPECT_TRUE(watch.expired());
    }
}

TEST(FutureThenTest, whatItThrowsReachesWhoeverRanItAndTheStateStays) {
    const auto fail = [](const Future<int>&) { throw std::runtime_error("from the continuation"); };
    std::optional<Promise<int>> promise(std::in_place);
    auto future = promise->getFuture();
    future.then(fail);
    EXPECT_EQ(thrownText([&] { promise->setValue(1); }), "from the continuation");
    EXPECT_EQ(thrownText([&] { future.then(fail); }), "from the continuation");
    EXPECT_EQ(future.get(), 1);
    promise.emplace();
    future = promise->getFuture();
    future.then(fail);
    EXPECT_NO_THROW(promise.reset());
    EXPECT_EQ(thrownText([&] { future.get(); }), kDropped);
}

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

}  // namespace
