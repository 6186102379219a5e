#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "services/LocalConfiguration.h"
#include "services/LocalServiceFramework.h"

namespace {

using connector::Message;
using connector::common::ContextState;
using MessageFuture = connector::Future<std::unique_ptr<Message>>;

class Known : public Message {};
class Unknown : public Message {};

class RecordingProvider : public connector::ServiceProvider {
public:
    MessageFuture handle(std::unique_ptr<Message>&& message) override {
        if (mustThrow) throw std::runtime_error("provider failed");
        context = ContextState::current()->getOr<std::string>("key", "none");
        return connector::makeReadyFuture(std::move(message));
    }
    bool mustThrow = false;
    std::string context;
};

std::string failureOf(MessageFuture future) {
    try {
        future.get();
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

TEST(LocalServiceFrameworkTest, deliversByClassAndAddressWithTheContextAsTheCurrentOne) {
    standalone::LocalServiceFramework framework;
    const auto provider = std::make_shared<RecordingProvider>();
    framework.registerService({"here"}, {typeid(Known)}, provider);
    EXPECT_TRUE(provider->isRunning());
    const auto context = std::make_shared<ContextState>();
    context->set("key", std::string("value"));
    EXPECT_EQ(failureOf(framework.deliver({"here"}, std::make_unique<Known>(), context)), "");
    EXPECT_EQ(provider->context, "value");
    EXPECT_FALSE(ContextState::current()->has("key"));
    EXPECT_NE(failureOf(framework.deliver({"there"}, std::make_unique<Known>(), nullptr)).find("Known"),
              std::string::npos);
    EXPECT_NE(failureOf(framework.deliver({"here"}, std::make_unique<Unknown>(), nullptr)).find("Unknown"),
              std::string::npos);
    EXPECT_NE(failureOf(framework.deliver({"here"}, nullptr, nullptr)), "");
    provider->mustThrow = true;
    EXPECT_EQ(failureOf(framework.deliver({"here"}, std::make_unique<Known>(), nullptr)), "provider failed");
    framework.unregisterService(provider);
    EXPECT_FALSE(provider->isRunning());
    EXPECT_NE(failureOf(framework.deliver({"here"}, std::make_unique<Known>(), nullptr)), "");
}

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
    configuration->set("other", std::string("x"));
    subscription->cancel();
    configuration->set("mode", std::string("prompt"));
    EXPECT_EQ(seen, "ppe");
    EXPECT_EQ(configuration->getText("mode", ""), "prompt");
    configuration->set("mode", 3);
    EXPECT_EQ(configuration->getText("mode", "not a text"), "not a text");
}

}  // namespace
