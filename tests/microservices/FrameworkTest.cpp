#include <atomic>
#include <chrono>
#include <stdexcept>

#include <gtest/gtest.h>

#include "Fixture.h"

namespace {

using namespace cppmicroservices;

TEST(FrameworkTest, isNotUsableBeforeItIsStarted) {
    auto framework = FrameworkFactory().NewFramework();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_INSTALLED);
    EXPECT_FALSE(framework.GetBundleContext());
    EXPECT_THROW(framework.GetBundleContext().GetBundle(), std::runtime_error);
    framework.Start();
    framework.Start();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_ACTIVE);
    EXPECT_EQ(framework.GetSymbolicName(), "system_bundle");
    EXPECT_TRUE(framework.GetBundleContext().GetBundle() == framework);
}

TEST(FrameworkTest, forgetsItsBundlesInAStop) {
    RunningFramework running;
    const auto old = running.context();
    auto bundle = running.install("test_passive");
    bundle.Start();
    running.framework.Stop();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (running.framework.GetState() != Bundle::STATE_RESOLVED &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(old);
    EXPECT_THROW(bundle.Start(), std::runtime_error);
    running.framework.Start();
    EXPECT_TRUE(running.context());
    EXPECT_FALSE(old);
    EXPECT_FALSE(running.install("test_passive") == bundle);
}

TEST(FrameworkTest, isKeptByItsHandlesAndStoppedWithTheLast) {
    int stops = 0;
    BundleContext context;
    {
        Bundle kept;
        {
            RunningFramework running;
            context = running.context();
            direct(context, {}, [&](BundleContext inside) {
                ++stops;
                EXPECT_EQ(inside.GetBundle().GetState(), Bundle::STATE_STOPPING);
            });
            running.install("test_directed").Start();
            kept = context.GetBundle();
        }
        EXPECT_TRUE(context);
        EXPECT_EQ(stops, 0);
    }
    EXPECT_EQ(stops, 1);
    EXPECT_FALSE(context);
    EXPECT_THROW(context.GetBundle(), std::runtime_error);
}

// Starts that come late fail; the others are stopped with the framework.
TEST(FrameworkTest, isStoppedWhileBundlesStart) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> active{0};
        {
            RunningFramework running;
            direct(
                running.context(), [&](auto) { ++active; }, [&](auto) { --active; });
            const auto bundle = running.install("test_directed");
            atOnce(3, [&](int i) {
                auto copy = bundle;
                try {
                    i == 0 ? running.framework.Stop() : copy.Start();
                } catch (const std::runtime_error&) {
                }
            });
        }
        EXPECT_EQ(active, 0);
    }
}

TEST(FrameworkTest, isIndependentOfOthers) {
    RunningFramework one;
    RunningFramework other;
    direct(one.context(), {});
    EXPECT_TRUE(one.context().GetServiceReference<test_services::Director>());
    EXPECT_FALSE(other.context().GetServiceReference<test_services::Director>());
}

TEST(BundleHandleTest, isUselessWhenFalse) {
    Bundle none;
    EXPECT_FALSE(none);
    EXPECT_THROW(none.Start(), std::invalid_argument);
    EXPECT_THROW(none.GetState(), std::invalid_argument);
}

}  // namespace
