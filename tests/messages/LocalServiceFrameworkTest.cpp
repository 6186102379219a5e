#include <gtest/gtest.h>

#include "messages/LocalServiceFramework.h"

namespace {

using connector::Message;
using connector::common::ContextState;

class Known : public Message {};
class Unknown : public Message {};

class Provider : public connector::ServiceProvider {
public:
    connector::Future<std::unique_ptr<Message>> handle(std::unique_ptr<Message>&&) override {
        throw std::runtime_error(ContextState::current()->getOr<std::string>("key", "none"));
    }
};

TEST(LocalServiceFrameworkTest, deliversByClassAndAddressWithTheContextAsTheCurrentOne) {
    messages::LocalServiceFramework framework;
    const auto context = std::make_shared<ContextState>();
    context->set("key", std::string("value"));
    const auto failure = [&](const char* address, std::unique_ptr<Message> message) -> std::string {
        try {
            framework.deliver({address}, std::move(message), context).get();
            return "";
        } catch (const std::exception& error) {
            return error.what();
        }
    };
    const std::string known = typeid(Known).name(), unknown = typeid(Unknown).name();
    const auto provider = std::make_shared<Provider>();
    framework.registerService({"here"}, {typeid(Known)}, provider);
    EXPECT_TRUE(provider->isRunning());
    EXPECT_EQ(failure("here", std::make_unique<Known>()), "value");
    EXPECT_FALSE(ContextState::current()->has("key"));
    EXPECT_EQ(failure("there", std::make_unique<Known>()),
              "Incorrect message type. Expected: nothing but found " + known);
    EXPECT_EQ(failure("here", std::make_unique<Unknown>()),
              "Incorrect message type. Expected: " + known + " but found " + unknown);
    EXPECT_NE(failure("here", nullptr), "");
    framework.unregisterService(provider);
    EXPECT_FALSE(provider->isRunning());
    EXPECT_NE(failure("here", std::make_unique<Known>()), "value");
}

}  // namespace
