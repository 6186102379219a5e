#include <atomic>
#include <stdexcept>

#include <gmock/gmock.h>

#include "Fixture.h"
#include "support/threads.h"

namespace {

using namespace cppmicroservices;
using test_services::Probe;
using testing::AllOf, testing::HasSubstr, testing::ThrowsMessage;

TEST(FrameworkTest, forgetsItsBundlesInAStop) {
    RunningFramework running;
    const auto old = running.context();
    auto bundle = running.install("test_passive");
    bundle.Start();
    running.framework.Stop();
    ASSERT_TRUE(eventually([&] { return running.framework.GetState() == Bundle::STATE_RESOLVED; }));
    EXPECT_FALSE(old);
    EXPECT_THROW(bundle.Start(), std::runtime_error);
    running.framework.Start();
    EXPECT_TRUE(running.context());
    EXPECT_FALSE(old);
    EXPECT_EQ(running.install("test_passive").GetState(), Bundle::STATE_INSTALLED);
}

TEST(FrameworkTest, isKeptByItsHandlesAndStoppedWithTheLast) {
    int stops = 0;
    BundleContext context;
    {
        Bundle kept;
        {
            RunningFramework running;
            context = running.context();
            direct(context, {[](auto) {}, [&](auto) { ++stops; }});
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
            direct(running.context(), {[&](auto) { ++active; }, [&](auto) { --active; }});
            const auto bundle = running.install("test_directed");
            onThreads(3, [&](int i) {
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

class BundleTest : public testing::Test {
protected:
    RunningFramework running;
    BundleContext context = running.context();
};

TEST_F(BundleTest, isInstalledWithoutBeingStarted) {
    const auto bundle = running.install("test_directed");
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_INSTALLED);
    EXPECT_EQ(bundle.GetSymbolicName(), "test_directed");
    EXPECT_EQ(bundle.GetLocation(), NUMORA_TEST_BUNDLES "/libtest_directed.so");
    const auto header = any_cast<std::vector<Any>>(bundle.GetHeaders().at("Test.Header"));
    EXPECT_EQ(any_cast<int>(header.at(1)), 7);
    EXPECT_FALSE(bundle.GetBundleContext());
}

TEST_F(BundleTest, isRefusedWithoutALibraryOrAManifestOrFromASecondLocation) {
    running.install("test_passive");
    for (const char* library : {"/missing.so", "/proc/self/exe", NUMORA_TEST_BUNDLES "/./libtest_passive.so"})
        EXPECT_THROW(context.InstallBundles(library), std::runtime_error) << library;
}

TEST_F(BundleTest, offersServicesWhileItIsActive) {
    auto bundle = running.install("test_directed");
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    const auto probe = context.GetService(context.GetServiceReference<Probe>());
    EXPECT_TRUE(probe->context().GetBundle() == bundle);

    const auto inside = bundle.GetBundleContext();
    bundle.Stop();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_FALSE(context.GetServiceReference<Probe>());
    EXPECT_THROW(inside.GetBundle(), std::runtime_error);
    EXPECT_FALSE(probe->context()) << "its code stays, and so does what is held of it";

    bundle.Start();
    EXPECT_TRUE(probe->context());
    EXPECT_FALSE(inside);
}

TEST_F(BundleTest, thatThrowsInItsStartIsNotStartedAndInItsStopIsStoppedEvenSo) {
    BundleContext kept;
    const auto fails = [&](BundleContext inside) {
        kept = inside;
        throw std::runtime_error("no luck");
    };
    auto director = direct(context, {fails});
    auto bundle = running.install("test_directed");
    const auto expectStopped = [&] {
        EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
        EXPECT_FALSE(context.GetServiceReference<Probe>());
        EXPECT_FALSE(kept);
    };
    EXPECT_THAT([&] { bundle.Start(); }, ThrowsMessage<std::runtime_error>(
                                             AllOf(HasSubstr("no luck"), HasSubstr(bundle.GetSymbolicName()),
                                                   HasSubstr(bundle.GetLocation()))));
    expectStopped();
    director.Unregister();
    bundle.Start();
    direct(context, {[](auto) {}, fails});
    EXPECT_THROW(bundle.Stop(), std::runtime_error);
    expectStopped();
}

TEST_F(BundleTest, mayStartAndStopOthersInItsActivator) {
    auto other = running.install("test_passive");
    direct(context, {[&](auto) { other.Start(); }, [&](auto) { other.Stop(); }});
    auto bundle = running.install("test_directed");
    bundle.Start();
    EXPECT_EQ(other.GetState(), Bundle::STATE_ACTIVE);
    bundle.Stop();
    EXPECT_EQ(other.GetState(), Bundle::STATE_RESOLVED);
}

TEST_F(BundleTest, isOneHoweverManyInstallIt) {
    std::vector<Bundle> bundles(4);
    onThreads(4, [&](int i) { bundles[static_cast<std::size_t>(i)] = running.install("test_passive"); });
    for (const Bundle& bundle : bundles) EXPECT_TRUE(bundle == bundles.front());
}

TEST_F(BundleTest, entersItsActivatorOnOneThreadAtATime) {
    std::atomic<int> inside{0};
    int starts = 0, stops = 0;
    const auto visit = [&](int& count) {
        EXPECT_EQ(++inside, 1);
        std::this_thread::yield();
        ++count;
        --inside;
    };
    direct(context, {[&](auto) { visit(starts); }, [&](auto) { visit(stops); }});
    auto bundle = running.install("test_directed");
    onThreads(4, [&](int i) {
        auto copy = bundle;
        for (int round = 0; round < 200; ++round) i % 2 == 0 ? copy.Start() : copy.Stop();
    });
    bundle.Stop();
    EXPECT_GT(starts, 0);
    EXPECT_EQ(starts, stops);
}

}  // namespace
