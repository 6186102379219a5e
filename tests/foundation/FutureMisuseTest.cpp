#include <chrono>
#include <exception>
#include <functional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "connector/Promise.h"
#include "thrownText.h"

namespace {

using connector::Future;
using connector::Promise;
using connector::detail::FutureStatus;

const std::string kPromiseInvalid = "Promise state isn't valid!";
const std::string kFutureInvalid = "Future state isn't valid!";
const std::string kTaken = "Future already returned it's value or has an associated continuation.";
const std::string kCancelled = "Future has been cancelled.";
const std::string kResolved = "Promise already resolved.";

struct MisuseCase {
    std::string name;
    std::string text;
    /// Called with a new promise and its future.
    std::function<void(Promise<int>&, Future<int>&)> action;
};

class FutureMisuseTest : public testing::TestWithParam<MisuseCase> {};

TEST_P(FutureMisuseTest, throwsItsTextAndReleasesTheMutex) {
    Promise<int> promise;
    auto future = promise.getFuture();
    const auto state = promise.getState();
    EXPECT_EQ(thrownText([&] { GetParam().action(promise, future); }), GetParam().text);
    if (!state->mutex.try_lock()) FAIL() << "still locked";
    state->mutex.unlock();
}

template <class Operation>
MisuseCase movedFromPromise(std::string name, Operation operation) {
    return {std::move(name), kPromiseInvalid, [operation](Promise<int>& promise, Future<int>&) {
                const Promise<int> newOwner(std::move(promise));
                operation(promise);  // NOLINT(bugprone-use-after-move)
            }};
}

template <class Operation>
MisuseCase movedFromFuture(std::string name, Operation operation) {
    return {std::move(name), kFutureInvalid, [operation](Promise<int>&, Future<int>& future) {
                const Future<int> newOwner(std::move(future));
                operation(future);  // NOLINT(bugprone-use-after-move)
            }};
}

const auto ignore = [](Future<int>) {};  // NOLINT(performance-unnecessary-value-param)

INSTANTIATE_TEST_SUITE_P(
    MovedFrom, FutureMisuseTest,
    testing::Values(movedFromPromise("getFuture", [](auto& promise) { promise.getFuture(); }),
                    movedFromPromise("setValue", [](auto& promise) { promise.setValue(1); }),
                    movedFromPromise("setException", [](auto& promise) { promise.setException(nullptr); }),
                    movedFromPromise("promiseGetState", [](auto& promise) { promise.getState(); }),
                    movedFromFuture("get", [](auto& future) { future.get(); }),
                    movedFromFuture("isReady", [](auto& future) { future.isReady(); }),
                    movedFromFuture("wait", [](auto& future) { future.wait(); }),
                    movedFromFuture("waitFor", [](auto& future) { future.waitFor(std::chrono::hours(1)); }),
                    movedFromFuture("cancel", [](auto& future) { future.cancel(); }),
                    movedFromFuture("then", [](auto& future) { future.then(ignore); }),
                    movedFromFuture("futureGetState", [](auto& future) { future.getState(); }),
                    MisuseCase{"defaultConstructed", kFutureInvalid,
                               [](auto&, auto&) { Future<int>().get(); }}),
    [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(OneShot, FutureMisuseTest,
                         testing::Values(MisuseCase{"secondFuture", "Promise already returned a future.",
                                                    [](auto& promise, auto&) { promise.getFuture(); }},
                                         MisuseCase{"valueAfterError", kResolved,
                                                    [](auto& promise, auto&) {
                                                        promise.setException(std::make_exception_ptr(1));
                                                        promise.setValue(1);
                                                    }},
                                         MisuseCase{"secondGet", kTaken,
                                                    [](auto& promise, auto& future) {
                                                        promise.setValue(1);
                                                        future.get();
                                                        future.get();
                                                    }},
                                         MisuseCase{"getAfterThen", kTaken,
                                                    [](auto&, auto& future) {
                                                        future.then(ignore);
                                                        future.get();
                                                    }},
                                         MisuseCase{"secondThen", kTaken,
                                                    [](auto&, auto& future) {
                                                        future.then(ignore);
                                                        future.then(ignore);
                                                    }},
                                         MisuseCase{"thenAfterGet", kTaken,
                                                    [](auto& promise, auto& future) {
                                                        promise.setValue(1);
                                                        future.get();
                                                        future.then(ignore);
                                                    }},
                                         MisuseCase{"getAfterCancel", kCancelled,
                                                    [](auto&, auto& future) {
                                                        future.cancel();
                                                        future.get();
                                                    }},
                                         MisuseCase{"unknownStatus", "Invalid Future state reached.",
                                                    [](auto&, auto& future) {
                                                        future.getState()->status = FutureStatus{4};
                                                        future.get();
                                                    }}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
