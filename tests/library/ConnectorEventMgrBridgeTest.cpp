#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <gmock/gmock.h>

#include "connector/interpreter/ConnectorEventMgrBridge.h"
#include "event_json_converter/EventToJsonConverter.h"
#include "foundation/cppmicroservices/framework.h"
#include "support/FakeHost.h"
#include "support/FakeMessageService.h"
#include "support/LogRecords.h"
#include "support/threads.h"

namespace connector::interpreter {

namespace {

using event_json_converter::EventToJsonConverter;
using foundation::json::Value;
using foundation::msg_svc::eventmgr::BaseEvent;
using message_service::MessageService;
using Lines = std::vector<std::string>;

struct NumberEvent : BaseEvent {
    static constexpr const char16_t* typeName = u"test::NumberEvent";
    NumberEvent(std::u16string tag, int value) : BaseEvent({typeName, {std::move(tag)}}), number(value) {}
    int number;
};

class NumberConverter : public EventToJsonConverter {
public:
    void convert(const BaseEvent& event, std::map<std::string, Value>& members) override {
        const int number = static_cast<const NumberEvent&>(event).number;
        if (number < 0) throw std::runtime_error("it is negative");
        members.emplace("number", Value(number));
    }
};

/// With a framework, in which the test puts the converters.
class HostWithFramework : public fake::FakeHost {
public:
    HostWithFramework() { framework_.Start(); }
    cppmicroservices::Framework microservices() override { return framework_; }
    std::vector<cppmicroservices::Bundle> installAndStartBundles(const std::string& path) override {
        installed.push_back(path);
        return {};
    }
    static inline Lines installed;  // of the whole process

private:
    cppmicroservices::Framework framework_ = cppmicroservices::FrameworkFactory().NewFramework();
};

}  // namespace

class ConnectorEventMgrBridgeTest : public testing::Test {
protected:
    void convert(const std::string& tag) {
        host_.microservices().GetBundleContext().RegisterService<EventToJsonConverter>(
            std::make_shared<NumberConverter>(), {{"eventTag", tag}});
    }
    void subscribe(const std::string& channel) { messages_->subscribeClient("client", channel); }
    void unsubscribe(const std::string& channel) { messages_->unsubscribeClient("client", channel); }
    void raise(const std::u16string& tag, int number) { host_.events->raise(NumberEvent(tag, number)); }
    std::size_t subscriptions() const { return host_.events->subscriptionCount<BaseEvent>(); }

    HostWithFramework host_;
    LogRecords log_{"connector::interpreter::v1::EventMgrBridge"};
    const std::shared_ptr<fake::FakeMessageService> messages_ = std::make_shared<fake::FakeMessageService>();
};

TEST_F(ConnectorEventMgrBridgeTest, keepsOneSubscriptionForAllClientsOfAChannelAlsoAfterAFailure) {
    convert("tag");
    const ConnectorEventMgrBridge bridge(messages_);
    const std::string channel = "/eventmgr/0/tag";
    subscribe(channel);
    subscribe(channel);
    EXPECT_EQ(subscriptions(), 1U);
    raise(u"tag", 1);
    unsubscribe(channel);
    raise(u"tag", -1);
    raise(u"tag", 2);
    unsubscribe(channel);
    raise(u"tag", 3);
    EXPECT_EQ(messages_->published(),
              (Lines{R"(/eventmgr/0/tag {"number":1})", R"(/eventmgr/0/tag {"number":2})"}));
    EXPECT_EQ(subscriptions(), 0U);
    EXPECT_EQ(log_.lines(),
              (Lines{"debug: Subscribed to channel " + channel, "debug: Incref for channel " + channel,
                     "debug: Decref for channel " + channel, "error: Event forwarding failed: it is negative",
                     "debug: Unsubscribed from channel " + channel}));
    EXPECT_EQ(host_.events->handlerFailures, 0);
}

TEST_F(ConnectorEventMgrBridgeTest, logsWhatItDoesNotUnderstand) {
    const ConnectorEventMgrBridge bridge(messages_);
    for (const char* channel : {"/eventmgr/7", "/eventmgr/0/a/b", "/eventmgr/**", "/other/0/x"}) {
        subscribe(channel);
    }
    unsubscribe("/eventmgr/0/never");
    unsubscribe("/other/0/x");
    subscribe("/eventmgr/7/x");
    EXPECT_THAT(log_.lines(),
                testing::ElementsAre("warning: Malformed subscription request: /eventmgr/7",
                                     "warning: Malformed subscription request: /eventmgr/0/a/b",
                                     "warning: Malformed subscription request: /eventmgr/**",
                                     "warning: Unexpected unsubscribe from channel /eventmgr/0/never",
                                     AllOf(testing::StartsWith("error: Exception caught: "),
                                           testing::HasSubstr("There is no interpreter 7"))));
    EXPECT_EQ(subscriptions(), 0U);
}

TEST_F(ConnectorEventMgrBridgeTest, dropsEventsThatNothingConverts) {
    const ConnectorEventMgrBridge bridge(messages_);
    subscribe("/eventmgr/abc/a(b)");  // which stands for the local interpreter
    raise(u"a(b)", 1);
    EXPECT_EQ(log_.lines(),
              (Lines{"warning: Malformed ZvmID: abc", "debug: Subscribed to channel /eventmgr/abc/a(b)"}));
    convert("a(b)");  // what filters give a meaning stands for itself
    raise(u"a(b)", 2);
    EXPECT_EQ(messages_->published(), (Lines{R"(/eventmgr/abc/a(b) {"number":2})"}));
}

TEST_F(ConnectorEventMgrBridgeTest, waitsForTheMessageService) {
    using Creation = Promise<std::shared_ptr<MessageService>>;
    for (const auto& service : {std::shared_ptr<MessageService>(messages_), {}}) {
        messages_->creation = std::make_unique<Creation>();
        {
            const ConnectorEventMgrBridge bridge(messages_);
            messages_->creation->setValue(service);
            EXPECT_EQ(messages_->subscriptions("/eventmgr/**"), service ? 1U : 0U);
        }
        EXPECT_EQ(messages_->subscriptions("/eventmgr/**"), 0U);
    }
    messages_->creation = std::make_unique<Creation>();
    const ConnectorEventMgrBridge bridge(messages_);
    messages_->creation->setException(std::make_exception_ptr(std::runtime_error("no service")));
    EXPECT_THAT(log_.lines().back(), testing::HasSubstr("no service"));
}

TEST_F(ConnectorEventMgrBridgeTest, startsTheConvertersOnceAndEndsItsSubscriptions) {
    for (int i = 0; i < 2; ++i) {
        const ConnectorEventMgrBridge bridge(messages_);
        subscribe("/eventmgr/0/a");
        subscribe("/eventmgr/0/b");
        EXPECT_EQ(subscriptions(), 2U);
    }
    EXPECT_EQ(subscriptions(), 0U);
    EXPECT_EQ(HostWithFramework::installed, (Lines{R"(bin\win64\json_event_converter)"}));
}

TEST_F(ConnectorEventMgrBridgeTest, makesOneSubscriptionForClientsThatRace) {
    convert("tag");
    const ConnectorEventMgrBridge bridge(messages_);
    onThreads(8, [this](int) {
        for (int round = 0; round < 200; ++round) {
            subscribe("/eventmgr/0/tag");
            raise(u"tag", round);
            unsubscribe("/eventmgr/0/tag");
        }
    });
    EXPECT_EQ(subscriptions(), 0U);
    subscribe("/eventmgr/0/tag");
    EXPECT_EQ(subscriptions(), 1U);
}

}  // namespace connector::interpreter
