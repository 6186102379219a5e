#include <gtest/gtest.h>

#include "services/LocalConfiguration.h"

namespace {

TEST(LocalConfigurationTest, tellsSubscribersOfChangesUntilTheyCancel) {
    const auto configuration = std::make_shared<standalone::LocalConfiguration>(
        std::map<std::string, std::string>{{"mode", "idle"}});
    EXPECT_EQ(configuration->getText("mode", "default"), "idle");
    EXPECT_EQ(configuration->getText("other", "default"), "default");
    std::string seen;
    auto subscription = configuration->subscribe(
        "mode", std::make_shared<connector::reactive_streams::CallbackSubscriber>(
                    [&](const auto& value) { seen += boost::get<std::string>(value); }));
    configuration->set("mode", std::string("ppe"));
    subscription->cancel();
    configuration->set("mode", 3);
    EXPECT_EQ(seen, "ppe");
    EXPECT_EQ(configuration->getText("mode", "not a text"), "not a text");
}

}  // namespace
