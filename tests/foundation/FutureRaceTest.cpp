#include <atomic>
#include <memory>
#include <optional>

#include <gtest/gtest.h>

#include "connector/Promise.h"
#include "support/threads.h"
#include "support/thrownText.h"

namespace {

using connector::Future;
using connector::Promise;

constexpr int kRounds = 500;

using Channel = std::optional<Promise<std::string>>;

const std::string kDropped = "Promise destroyed before it provided a value.";

// Against a cancel: one get, one plain wait on the state and one polling reader. All must end, and agree.
TEST(FutureRaceTest, everyWaiterSeesTheOneOutcome) {
    for (int round = 0; round < 3 * kRounds; ++round) {
        Channel promise(std::in_place);
        auto future = promise->getFuture();
        const auto state = future.getState();
        std::string value;
        std::string error;
        race({[&] { error = thrownText([&] { value = future.get(); }); },
              [&] {
                  connector::MutexLock lock(state->mutex);
                  while (state->status == connector::detail::FutureStatus::Pending)
                      state->condition.wait(lock.native());
              },
              [&] {
                  while (!future.isReady()) std::this_thread::yield();
              },
              [&] {
                  if (round % 3 != 0) promise->setValue("value");
                  if (round % 3 != 1) promise.reset();
              },
              [&] { future.cancel(); }});
        const auto status = state->status.load();
        using enum connector::detail::FutureStatus;
        EXPECT_EQ(value, status == Value ? "value" : "");
        EXPECT_EQ(error, status == Value   ? "nothing thrown"
                         : status == Error ? kDropped
                                           : "Future has been cancelled.");
    }
}

TEST(FutureRaceTest, aContinuationRunsOnceWheneverItIsAttached) {
    for (int round = 0; round < kRounds; ++round) {
        Promise<int> promise;
        auto future = promise.getFuture();
        std::atomic<int> calls = 0;
        race({[&] { promise.setValue(1); },
              [&] { future.then([&](Future<int> ready) { calls += ready.get(); }); }, [&] { future.wait(); },
              [&] { EXPECT_TRUE(future.waitFor(std::chrono::hours::max())); }});
        EXPECT_EQ(calls, 1);
    }
}

// The consumer tears everything down as soon as it has the value, while setValue is still on its way out.
TEST(FutureRaceTest, theWokenConsumerMayDestroyThePromise) {
    for (int round = 0; round < kRounds; ++round) {
        auto promise = std::make_unique<Promise<int>>();
        auto* const producer = promise.get();
        std::optional future = promise->getFuture();
        race({[&] {
                  EXPECT_EQ(future->get(), 1);
                  future.reset();
                  promise.reset();
              },
              [&] { producer->setValue(1); }});
    }
}

}  // namespace
