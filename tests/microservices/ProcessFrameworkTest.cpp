#include <cstdlib>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "Fixture.h"
#include "foundation/cppmicroservices/framework.h"
#include "services/processFramework.h"
#include "support/LogRecords.h"

namespace {

using namespace cppmicroservices;
using standalone::installAndStartBundles;
using standalone::processFramework;

class ProcessFrameworkTest : public testing::Test {
protected:
    ProcessFrameworkTest() { ::setenv("NUMORA_BUNDLES", NUMORA_TEST_BUNDLES, 1); }
    ~ProcessFrameworkTest() override { ::unsetenv("NUMORA_BUNDLES"); }

    LogRecords log;
};

TEST_F(ProcessFrameworkTest, startsTheBundleThatAPathEndsWith) {
    EXPECT_TRUE(processFramework() == processFramework());
    auto bundles = installAndStartBundles("bin\\win64\\test_directed");
    ASSERT_EQ(bundles.size(), 1U);
    EXPECT_EQ(bundles.front().GetState(), Bundle::STATE_ACTIVE);
    EXPECT_TRUE(processFramework().GetBundleContext().GetServiceReference<test_services::Probe>());
    EXPECT_EQ(installAndStartBundles("test_directed"), bundles);
    EXPECT_EQ(log.count("error: "), 0) << log.all();
    bundles.front().Stop();
}

TEST_F(ProcessFrameworkTest, looksBesideTheProgramToo) {
    ::unsetenv("NUMORA_BUNDLES");
    const auto library = standalone::bundleLibrary("bin\\win64\\some_bundle").string();
    EXPECT_TRUE(library.ends_with("/numora/bundles/libsome_bundle.so")) << library;
    EXPECT_EQ(library.find(".."), std::string::npos) << library;
}

TEST_F(ProcessFrameworkTest, isOfferedByAnEnvironmentOnly) {
    EXPECT_THROW(foundation::cppmicroservices::getFramework(), std::logic_error);
    EXPECT_THROW(foundation::cppmicroservices::installAndStart("test_directed"), std::logic_error);
}

struct Failure {
    std::string path, bundle, cause;
};
class FailingBundleTest : public ProcessFrameworkTest, public testing::WithParamInterface<Failure> {};

TEST_P(FailingBundleTest, isLoggedAndLeftOut) {
    auto director =
        direct(processFramework().GetBundleContext(), [](auto) { throw std::runtime_error("out of luck"); });
    EXPECT_TRUE(installAndStartBundles(GetParam().path).empty());
    EXPECT_EQ(log.count("error: Bundle " + GetParam().bundle + " is not available: "), 1) << log.all();
    EXPECT_NE(log.all().find(GetParam().cause), std::string::npos) << log.all();
    director.Unregister();
}

INSTANTIATE_TEST_SUITE_P(Causes, FailingBundleTest,
                         testing::Values(Failure{"bin\\win64\\test_missing", "test_missing",
                                                 "libtest_missing.so"},
                                         Failure{"bin\\win64\\test_directed", "test_directed", "out of luck"},
                                         Failure{"bin\\win64\\test_mute", "test_mute", "activator"},
                                         Failure{"bin\\win64\\test_passive", "test_passive", "activator"}),
                         [](const auto& info) { return info.param.bundle; });

}  // namespace
