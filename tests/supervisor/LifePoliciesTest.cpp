#include <gtest/gtest.h>

#include "Limits.h"
#include "supervisor/Culler.h"
#include "supervisor/RestartPolicy.h"

using namespace std::chrono_literals;
using supervisor::Culler;
using supervisor::RestartPolicy;

namespace {

class LifePoliciesTest : public testing::Test {
protected:
    std::chrono::steady_clock::time_point time_{};
    const Culler::Clock clock_ = [this] { return time_; };

    void expect(Culler& culler, std::chrono::seconds later, Culler::Step step) {
        time_ += later;
        EXPECT_EQ(culler.look(), step) << "at " << time_.time_since_epoch() / 1s << " s";
    }
};

}  // namespace

TEST_F(LifePoliciesTest, threeBadEndsWithinFiveMinutesStopAnInterpreterUntilItIsAskedFor) {
    RestartPolicy policy(clock_);
    for (const auto pause : {0s, 200s, 200s, 99s}) {
        EXPECT_FALSE(policy.hasFailed());
        time_ += pause;
        policy.noteBadEnd();
    }
    EXPECT_TRUE(policy.hasFailed()) << "the last three within 299 seconds";
    time_ += 1h;
    EXPECT_TRUE(policy.hasFailed());
    policy.reset();
    policy.noteBadEnd();
    EXPECT_FALSE(policy.hasFailed());
}

TEST_F(LifePoliciesTest, anIdleInterpreterIsEndedToTheMomentAMinuteAfterTheAnnouncement) {
    Culler culler({.idle = 10min, .ifWatched = false}, clock_);
    expect(culler, 539s, Culler::Step::Nothing);
    EXPECT_EQ(*culler.nextLook() - time_, 1s);
    expect(culler, 1s, Culler::Step::Announce);
    expect(culler, 59s, Culler::Step::Nothing);
    culler.noteBegin();  // within the last second
    culler.noteBegin();
    culler.noteEnd();
    expect(culler, 24h, Culler::Step::Nothing);
    EXPECT_FALSE(culler.nextLook()) << "one still runs";
    culler.noteEnd();
    expect(culler, 540s, Culler::Step::Announce);
    culler.noteWatchers(1);
    expect(culler, 24h, Culler::Step::Nothing);
    culler.noteWatchers(0);
    expect(culler, 0s, Culler::Step::Announce);
    expect(culler, 59s, Culler::Step::Nothing);
    expect(culler, 1s, Culler::Step::End);
    EXPECT_FALSE(Culler({}, clock_).nextLook()) << "off by default";
}

TEST_F(LifePoliciesTest, memoryExplainsAsManyEndsAsTheSystemHasJustCounted) {
    std::uint64_t counted = 7;
    supervisor::OutOfMemoryCounter counter([&] { return counted; });
    EXPECT_FALSE(counter.take());
    counted = 9;
    counter.forgetOld();  // it may have counted just before
    EXPECT_TRUE(counter.take());
    EXPECT_TRUE(counter.take());
    EXPECT_FALSE(counter.take());
    counted = 10;
    counter.forgetOld();
    counter.forgetOld();
    EXPECT_FALSE(counter.take());
}
