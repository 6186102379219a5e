#include <cstdlib>
#include <stdexcept>

#include <gtest/gtest.h>

#include "Fixture.h"
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

TEST_F(ProcessFrameworkTest, looksBesideTheLibraryToo) {
    ::unsetenv("NUMORA_BUNDLES");
    const std::string library = standalone::bundleLibrary("bin\\win64\\json_event_converter").string();
    EXPECT_EQ(library, NUMORA_CONVERTER_BUNDLE);
}

TEST_F(ProcessFrameworkTest, logsAndLeavesOutWhatDoesNotStart) {
    auto director = direct(processFramework().GetBundleContext(),
                           {[](auto) { throw std::runtime_error("out of luck"); }});
    for (const auto& [bundle, cause] :
         {std::pair("test_missing", "libtest_missing.so"), std::pair("test_directed", "out of luck"),
          std::pair("test_mute", "activator"), std::pair("test_passive", "activator")}) {
        const LogRecords errors;
        EXPECT_TRUE(installAndStartBundles(std::string("bin\\win64\\") + bundle).empty());
        EXPECT_EQ(errors.count("error: Bundle " + std::string(bundle) + " is not available: "), 1)
            << errors.all();
        EXPECT_NE(errors.all().find(cause), std::string::npos) << errors.all();
    }
    director.Unregister();
}

}  // namespace
