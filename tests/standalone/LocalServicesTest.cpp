#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/FEvalSequenceServiceProvider.h"
#include "connector/interpreter/v1/MockInterpreterServiceProvider.h"
#include "messages/LocalServiceFramework.h"
#include "services/LocalConfiguration.h"

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
    messages::LocalServiceFramework framework;
    const auto provider = std::make_shared<RecordingProvider>();
    framework.registerService({"here"}, {typeid(Known)}, provider);
    EXPECT_TRUE(provider->isRunning());
    const auto context = std::make_shared<ContextState>();
    context->set("key", std::string("value"));
    EXPECT_EQ(failureOf(framework.deliver({"here"}, std::make_unique<Known>(), context)), "");
    EXPECT_EQ(provider->context, "value");
    EXPECT_FALSE(ContextState::current()->has("key"));
    const std::string known = typeid(Known).name(), unknown = typeid(Unknown).name();
    EXPECT_EQ(failureOf(framework.deliver({"there"}, std::make_unique<Known>(), nullptr)),
              "Incorrect message type. Expected: nothing but found " + known);
    EXPECT_EQ(failureOf(framework.deliver({"here"}, std::make_unique<Unknown>(), nullptr)),
              "Incorrect message type. Expected: " + known + " but found " + unknown);
    EXPECT_NE(failureOf(framework.deliver({"here"}, nullptr, nullptr)), "");
    provider->mustThrow = true;
    EXPECT_EQ(failureOf(framework.deliver({"here"}, std::make_unique<Known>(), nullptr)), "provider failed");
    framework.unregisterService(provider);
    EXPECT_FALSE(provider->isRunning());
    EXPECT_NE(failureOf(framework.deliver({"here"}, std::make_unique<Known>(), nullptr)), "");
}

// More sequences than threads may run them, each with another inside, which must not wait for each other.
TEST(LocalServiceFrameworkTest, letsASequenceDeliverToWhereItCameFrom) {
    using connector::container::SequenceContainer;
    using namespace connector::interpreter::v1;
    const auto framework = std::make_shared<messages::LocalServiceFramework>();
    framework->registerService({"here"}, {typeid(FEval)}, std::make_shared<MockInterpreterServiceProvider>());
    const auto sequences = std::make_shared<FEvalSequenceServiceProvider>();
    framework->registerService({"here"}, {typeid(SequenceContainer)}, sequences);
    std::vector<MessageFuture> answers;
    for (int i = 0; i < 50; ++i) {
        auto inner = std::make_unique<SequenceContainer>("inner");
        inner->messages.push_back(std::make_unique<FEval>("call"));
        auto outer = std::make_unique<SequenceContainer>("outer");
        outer->messages.push_back(std::move(inner));
        answers.push_back(framework->deliver({"here"}, std::move(outer), nullptr));
    }
    for (MessageFuture& answer : answers) {
        const auto outer = answer.get();
        const auto& inner =
            dynamic_cast<SequenceContainer&>(*dynamic_cast<SequenceContainer&>(*outer).messages.at(0));
        EXPECT_EQ(inner.uuid(), "inner");
        EXPECT_EQ(dynamic_cast<FEvalResponse&>(*inner.messages.at(0)).uuid(), "call");
    }
    auto refused = std::make_unique<SequenceContainer>();
    refused->messages.push_back(std::make_unique<Unknown>());
    EXPECT_TRUE(failureOf(framework->deliver({"here"}, std::move(refused), nullptr))
                    .starts_with("Incorrect message type. Expected: "));
    framework->unregisterService(sequences);
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
