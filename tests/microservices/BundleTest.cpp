#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "Fixture.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/IllegalStateException.h"
#include "cppmicroservices/SharedLibraryException.h"

namespace {

using namespace cppmicroservices;
using test_services::Probe;

class BundleTest : public testing::Test {
protected:
    Bundle install(const std::string& name) { return context.InstallBundles(bundlePath(name)).at(0); }

    RunningFramework running;
    BundleContext context = running.context();
};

TEST_F(BundleTest, isInstalledWithoutBeingStarted) {
    const auto bundle = install("test_directed");
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_INSTALLED);
    EXPECT_EQ(bundle.GetSymbolicName(), "test_directed");
    EXPECT_EQ(bundle.GetVersion().ToString(), "1.2.3");
    EXPECT_EQ(bundle.GetLocation(), bundlePath("test_directed"));
    const auto header = any_cast<std::vector<Any>>(bundle.GetHeaders().at("Test.Header"));
    EXPECT_EQ(any_cast<std::string>(header.at(0)), "a");
    EXPECT_EQ(any_cast<int>(header.at(1)), 7);
    EXPECT_FALSE(bundle.GetBundleContext());
    EXPECT_TRUE(install("test_directed") == bundle);
    EXPECT_EQ(context.GetBundles().size(), 2U);
    EXPECT_EQ(context.GetBundles(bundle.GetLocation()), std::vector<Bundle>{bundle});
}

TEST_F(BundleTest, isRefusedWithoutALibraryOrAManifestOrUnderASecondName) {
    EXPECT_THROW(context.InstallBundles(bundlePath("test_missing")), std::runtime_error);
    EXPECT_THROW(context.InstallBundles("/proc/self/exe"), std::runtime_error);
    install("test_passive");
    EXPECT_THROW(context.InstallBundles(NUMORA_TEST_BUNDLES "/./libtest_passive.so"), std::runtime_error);
}

TEST_F(BundleTest, offersServicesWhileItIsActive) {
    auto bundle = install("test_directed");
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    const auto probe = context.GetService(context.GetServiceReference<Probe>());
    EXPECT_TRUE(probe->context().GetBundle() == bundle);
    EXPECT_EQ(bundle.GetRegisteredServices().size(), 1U);

    const auto inside = bundle.GetBundleContext();
    bundle.Stop();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_FALSE(context.GetServiceReference<Probe>());
    EXPECT_THROW(inside.GetBundle(), IllegalStateException);
    // Its code stays, and so does what is held of it.
    EXPECT_FALSE(probe->context());

    bundle.Start();
    EXPECT_TRUE(probe->context());
    EXPECT_FALSE(inside);
}

TEST_F(BundleTest, isStartedAndStoppedOnce) {
    int starts = 0;
    int stops = 0;
    direct(
        context, [&](auto) { ++starts; }, [&](auto) { ++stops; });
    auto bundle = install("test_directed");
    bundle.Stop();
    bundle.Start();
    bundle.Start();
    EXPECT_EQ(starts, 1);
    bundle.Stop();
    bundle.Stop();
    EXPECT_EQ(stops, 1);
}

TEST_F(BundleTest, thatThrowsInItsStartIsNotStarted) {
    BundleContext kept;
    auto director = direct(context, [&](BundleContext inside) {
        kept = inside;
        EXPECT_TRUE(inside.GetServiceReference<Probe>());
        throw std::runtime_error("no luck");
    });
    auto bundle = install("test_directed");
    try {
        bundle.Start();
        FAIL();
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        EXPECT_NE(text.find("no luck"), std::string::npos) << text;
        EXPECT_NE(text.find("test_directed"), std::string::npos) << text;
        EXPECT_NE(text.find(bundle.GetLocation()), std::string::npos) << text;
    }
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_FALSE(context.GetServiceReference<Probe>());
    EXPECT_FALSE(kept);
    director.Unregister();
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
}

TEST_F(BundleTest, thatThrowsInItsStopIsStoppedAllTheSame) {
    auto director = direct(context, {}, [](auto) { throw std::runtime_error("no luck"); });
    auto bundle = install("test_directed");
    bundle.Start();
    EXPECT_THROW(bundle.Stop(), std::runtime_error);
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_FALSE(context.GetServiceReference<Probe>());
}

TEST_F(BundleTest, withoutTheActivatorThatItsManifestAsksForDoesNotStart) {
    auto bundle = install("test_mute");
    EXPECT_THROW(bundle.Start(), std::runtime_error);
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
}

TEST_F(BundleTest, withoutAnActivatorIsNeverLoaded) {
    auto bundle = install("test_passive");
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    EXPECT_TRUE(bundle.GetBundleContext());
    bundle.Stop();
    EXPECT_FALSE(bundle.GetBundleContext());
}

TEST_F(BundleTest, takesAManifestFromItsCaller) {
    const auto file = std::filesystem::temp_directory_path() / ("no-library-" + std::to_string(::getpid()));
    std::ofstream(file) << "text";
    AnyMap headers(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    headers[Constants::BUNDLE_SYMBOLICNAME] = std::string("no_library");
    headers[Constants::BUNDLE_ACTIVATOR] = true;
    AnyMap manifest(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    manifest["no_library"] = headers;
    auto bundle = context.InstallBundles(file.string(), manifest).at(0);
    try {
        bundle.Start();
        FAIL();
    } catch (const SharedLibraryException& error) {
        EXPECT_TRUE(error.GetBundle() == bundle);
    }
    std::filesystem::remove(file);
}

TEST_F(BundleTest, canBeUninstalledOnce) {
    auto bundle = install("test_directed");
    bundle.Start();
    bundle.Uninstall();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_UNINSTALLED);
    EXPECT_FALSE(context.GetServiceReference<Probe>());
    EXPECT_EQ(context.GetBundles().size(), 1U);
    EXPECT_THROW(bundle.Start(), std::logic_error);
    EXPECT_THROW(bundle.Uninstall(), std::logic_error);
}

TEST_F(BundleTest, isStoppedWithTheFramework) {
    int stops = 0;
    direct(context, {}, [&](BundleContext inside) {
        ++stops;
        EXPECT_EQ(inside.GetBundle().GetState(), Bundle::STATE_STOPPING);
    });
    install("test_directed").Start();
    running.framework.Stop();
    running.framework.WaitForStop(std::chrono::milliseconds::zero());
    EXPECT_EQ(stops, 1);
}

}  // namespace
