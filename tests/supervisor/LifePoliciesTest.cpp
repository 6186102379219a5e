#include <gtest/gtest.h>

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
    Culler culler({.idle = 10min}, clock_);
    culler.noteWatchers(1);
    expect(culler, 539s, Culler::Step::Nothing);
    EXPECT_EQ(*culler.nextLook() - time_, 1s);
    expect(culler, 1s, Culler::Step::Announce);
    expect(culler, 59s, Culler::Step::Nothing);
    culler.noteBegin();  // within the last second
    culler.noteBegin();
    expect(culler, 24h, Culler::Step::Nothing);
    culler.noteEnd();
    EXPECT_FALSE(culler.nextLook()) << "one still runs";
    culler.noteEnd();
    expect(culler, 539s, Culler::Step::Nothing);
    expect(culler, 1s, Culler::Step::Announce);
    expect(culler, 59s, Culler::Step::Nothing);
    expect(culler, 1s, Culler::Step::End);
}

TEST_F(LifePoliciesTest, aWatchedInterpreterMayBeSparedAndIsAnnouncedAMinuteBeforeInAnyCase) {
    Culler culler({.idle = 10min, .ifWatched = false}, clock_);
    expect(culler, 9min, Culler::Step::Announce);
    culler.noteWatchers(1);
    expect(culler, 24h, Culler::Step::Nothing);
    culler.noteWatchers(0);
    expect(culler, 0s, Culler::Step::Announce);
    expect(culler, 59s, Culler::Step::Nothing);
    expect(culler, 1s, Culler::Step::End);
    EXPECT_FALSE(Culler({}, clock_).nextLook()) << "off by default";
}
