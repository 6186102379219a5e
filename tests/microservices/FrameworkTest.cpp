#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "Fixture.h"
#include "cppmicroservices/IllegalStateException.h"

namespace {

using namespace cppmicroservices;
using namespace std::chrono_literals;

TEST(FrameworkTest, isNotUsableBeforeItIsStarted) {
    auto framework = FrameworkFactory().NewFramework();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_INSTALLED);
    EXPECT_FALSE(framework.GetBundleContext());
    EXPECT_THROW(framework.GetBundleContext().GetBundles(), IllegalStateException);
    EXPECT_EQ(framework.WaitForStop(0ms).GetType(), FrameworkEvent::FRAMEWORK_ERROR);
    framework.Init();
    EXPECT_TRUE(framework.GetBundleContext());
}

TEST(FrameworkTest, isBundleZero) {
    RunningFramework running;
    running.framework.Start();
    EXPECT_EQ(running.framework.GetState(), Bundle::STATE_ACTIVE);
    EXPECT_EQ(running.framework.GetSymbolicName(), "system_bundle");
    EXPECT_EQ(running.framework.GetLocation(), "System Bundle");
    EXPECT_TRUE(running.context().GetBundle(0) == running.framework);
    EXPECT_FALSE(running.context().GetBundle(77));
    EXPECT_EQ(Framework(running.context().GetBundle()).GetBundleId(), 0);
    const auto other = running.context().InstallBundles(bundlePath("test_passive")).front();
    EXPECT_THROW(Framework{other}, std::logic_error);
}

TEST(FrameworkTest, forgetsEverythingInAStop) {
    RunningFramework running;
    auto& framework = running.framework;
    auto old = running.context();
    auto bundle = old.InstallBundles(bundlePath("test_passive")).front();
    bundle.Start();
    EXPECT_EQ(framework.WaitForStop(1ms).GetType(), FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);
    framework.Stop();
    EXPECT_EQ(framework.WaitForStop(0ms).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
    EXPECT_THROW(bundle.Start(), std::runtime_error);
    framework.Start();
    EXPECT_FALSE(old);
    EXPECT_THROW(old.GetBundle(), IllegalStateException);
    EXPECT_EQ(running.context().GetBundles().size(), 1U);
}

TEST(FrameworkTest, isKeptByItsHandlesAndStoppedWithTheLast) {
    bool isGone = false;
    BundleContext context;
    ServiceReference<Witness> reference;
    {
        Bundle kept;
        {
            auto framework = FrameworkFactory().NewFramework();
            framework.Start();
            context = framework.GetBundleContext();
            reference = context.RegisterService<Witness>(std::make_shared<Witness>([&] { isGone = true; }))
                            .GetReference();
            kept = context.GetBundle();
        }
        EXPECT_TRUE(reference);
        EXPECT_FALSE(isGone);
    }
    EXPECT_TRUE(isGone);
    EXPECT_FALSE(reference);
    EXPECT_FALSE(context);
    EXPECT_THROW(context.GetBundles(), IllegalStateException);
}

TEST(FrameworkTest, letsManyWaitForItsStop) {
    RunningFramework running;
    std::jthread first([&] { running.framework.WaitForStop(0ms); });
    std::jthread second([&] { running.framework.WaitForStop(1h); });
    running.framework.Stop();
}

TEST(FrameworkTest, isIndependentOfOthers) {
    RunningFramework one;
    RunningFramework other;
    one.context().RegisterService<Witness>(std::make_shared<Witness>());
    EXPECT_FALSE(other.context().GetServiceReference<Witness>());
}

TEST(BundleHandleTest, isUselessWhenFalse) {
    Bundle none;
    EXPECT_FALSE(none);
    EXPECT_THROW(none.Start(), std::invalid_argument);
    EXPECT_THROW(none.GetState(), std::invalid_argument);
}

}  // namespace
