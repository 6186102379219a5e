#include <atomic>
#include <future>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "connector/WorkerPool.h"

namespace {

using connector::WorkerPool;

// The queued task shows that the thread behind it is left to no one: it is refused before the pool has gone.
TEST(WorkerPoolTest, mayBeDestroyedByItsOwnTask) {
    for (int trial = 0; trial < 100; ++trial) {
        auto pool = std::make_unique<WorkerPool>(1, 1);
        std::promise<void> isQueued, isGone;
        std::string order;
        ASSERT_EQ(pool->submit({.run =
                                    [&] {
                                        isQueued.get_future().wait();
                                        pool.reset();
                                        order += "gone";
                                        isGone.set_value();
                                    }}),
                  WorkerPool::Outcome::Accepted);
        ASSERT_EQ(pool->submit({.run = [&] { order += "run "; }, .refuse = [&] { order += "refused "; }}),
                  WorkerPool::Outcome::Accepted);
        EXPECT_EQ(pool->submit({.run = [] {}}), WorkerPool::Outcome::Full);
        isQueued.set_value();
        isGone.get_future().wait();
        EXPECT_EQ(order, "refused gone");
    }
}

TEST(WorkerPoolTest, runsWhatIsQueuedWhenItFinishesAndStartsAnew) {
    WorkerPool pool(2, WorkerPool::unlimited);
    for (int round = 0; round < 100; ++round) {
        std::atomic<int> runs{0};
        for (int i = 0; i < 20; ++i) pool.submit({.run = [&] { ++runs; }});
        pool.finish();
        EXPECT_EQ(runs, 20);
        EXPECT_EQ(pool.submit({.run = [&] { ++runs; }}), WorkerPool::Outcome::Closed);
        pool.reopen();
    }
}

}  // namespace
