#include <atomic>
#include <latch>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Fixture.h"

namespace {

using namespace cppmicroservices;

template <class Action>
void atOnce(int count, const Action& action) {
    std::latch ready(count);
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            ready.arrive_and_wait();
            action(i);
        });
    }
}

TEST(BundleThreadsTest, concurrentInstallsOfOneLocationGiveOneBundle) {
    RunningFramework running;
    std::vector<Bundle> bundles(4);
    atOnce(4, [&, context = running.context()](int i) {
        auto copy = context;
        bundles[static_cast<std::size_t>(i)] = copy.InstallBundles(bundlePath("test_passive")).at(0);
    });
    for (const Bundle& bundle : bundles) EXPECT_TRUE(bundle == bundles.front());
    EXPECT_EQ(running.context().GetBundles().size(), 2U);
}

TEST(BundleThreadsTest, anActivatorIsNeverEnteredTwiceAtOnce) {
    RunningFramework running;
    std::atomic<int> inside{0};
    std::atomic<int> starts{0};
    std::atomic<int> stops{0};
    const auto visit = [&](std::atomic<int>& count) {
        EXPECT_EQ(++inside, 1);
        std::this_thread::yield();
        ++count;
        --inside;
    };
    direct(
        running.context(), [&](auto) { visit(starts); }, [&](auto) { visit(stops); });
    const auto bundle = running.context().InstallBundles(bundlePath("test_directed")).at(0);
    atOnce(4, [&](int i) {
        auto copy = bundle;
        for (int round = 0; round < 200; ++round) i % 2 == 0 ? copy.Start() : copy.Stop();
    });
    auto last = bundle;
    last.Stop();
    EXPECT_GT(starts, 0);
    EXPECT_EQ(starts, stops);
}

// Starts that come late fail; the others are stopped with the framework.
TEST(BundleThreadsTest, startsMeetTheStopOfTheFramework) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> running_{0};
        {
            RunningFramework running;
            direct(
                running.context(), [&](auto) { ++running_; }, [&](auto) { --running_; });
            const auto bundle = running.context().InstallBundles(bundlePath("test_directed")).at(0);
            atOnce(3, [&](int i) {
                auto copy = bundle;
                try {
                    i == 0 ? running.framework.Stop() : copy.Start();
                } catch (const std::runtime_error&) {
                }
            });
        }
        EXPECT_EQ(running_, 0);
    }
}

TEST(BundleThreadsTest, anActivatorMayUseTheFrameworkAndOtherBundles) {
    RunningFramework running;
    Bundle other = running.context().InstallBundles(bundlePath("test_passive")).at(0);
    direct(
        running.context(),
        [&](BundleContext inside) {
            other.Start();
            inside.RegisterService<Witness>(std::make_shared<Witness>());
            EXPECT_EQ(inside.GetBundles().size(), 3U);
        },
        [&](auto) { other.Stop(); });
    auto bundle = running.context().InstallBundles(bundlePath("test_directed")).at(0);
    bundle.Start();
    EXPECT_EQ(other.GetState(), Bundle::STATE_ACTIVE);
    bundle.Stop();
    EXPECT_EQ(other.GetState(), Bundle::STATE_RESOLVED);
}

// The code of the bundle lets the last handle go, on the thread that stops the framework.
TEST(BundleThreadsTest, theLastHandleMayGoInsideAStop) {
    std::latch stopped(1);
    auto kept = std::make_shared<Bundle>();
    {
        auto framework = FrameworkFactory().NewFramework();
        framework.Start();
        auto context = framework.GetBundleContext();
        direct(context, {}, [&stopped, kept](auto) {
            *kept = Bundle();
            stopped.count_down();
        });
        *kept = context.InstallBundles(bundlePath("test_directed")).at(0);
        kept->Start();
        framework.Stop();
    }
    stopped.wait();
}

}  // namespace
