#include <memory>
#include <typeinfo>

#include <gtest/gtest.h>

#include "connector/MessageAPI.h"
#include "connector/ServiceProviderAPI.h"
#include "support/thrownText.h"

namespace {

using connector::Message;
using Answer = connector::Future<std::unique_ptr<Message>>;

class Oracle;

struct Ask : connector::MessageAPI<Ask, Oracle> {};

class Oracle : public connector::ServiceProviderAPI<Oracle>, public std::enable_shared_from_this<Oracle> {
public:
    using connector::ServiceProviderAPI<Oracle>::handle;
    virtual Answer handle(std::unique_ptr<Ask>&& ask) = 0;
};

struct Reply : Message {};

/// Keeps what it is asked and answers.
class Delphi : public Oracle {
public:
    using Oracle::handle;
    Answer handle(std::unique_ptr<Ask>&& ask) override {
        asked = std::move(ask);
        return connector::makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<Reply>());
    }

    std::unique_ptr<Ask> asked;
};

class ServiceFrameTest : public testing::Test {
protected:
    ServiceFrameTest() { provider_->start(); }

    static std::string expectedText(const std::type_info& expected, const std::type_info& found) {
        return std::string("Incorrect message type. Expected: ") + expected.name() + " but found " +
               found.name();
    }

    std::shared_ptr<Delphi> provider_ = std::make_shared<Delphi>();
    connector::ServiceProvider& service_ = *provider_;
};

TEST_F(ServiceFrameTest, refusesMessagesThatAreNotForItAndAllWhileItIsStopped) {
    const auto refusal = [this](std::unique_ptr<Message> message) {
        return thrownText([&] { service_.handle(std::move(message)).get(); });
    };
    const auto& expected = typeid(connector::ServiceMessage<Oracle>);
    EXPECT_EQ(refusal(std::make_unique<Reply>()), expectedText(expected, typeid(Reply)));
    EXPECT_EQ(refusal(nullptr), expectedText(expected, typeid(std::nullptr_t)));
    provider_->stop();
    EXPECT_EQ(refusal(std::make_unique<Ask>()), "Service exists but is not running.");
    EXPECT_EQ(refusal(nullptr), "Service exists but is not running.");
}

TEST_F(ServiceFrameTest, refusesDeliveryThroughAPointerToAnotherObject) {
    Ask ask;
    const auto refusal = [&](std::unique_ptr<Message> holder) {
        return thrownText([&] { ask.deliver(std::move(holder), provider_).get(); });
    };
    const std::string start = "Unable to deliver to service. ";
    EXPECT_EQ(refusal(std::make_unique<Ask>()), start + expectedText(typeid(Ask), typeid(Ask)));
    EXPECT_EQ(refusal(nullptr), start + expectedText(typeid(Ask), typeid(std::nullptr_t)));
    EXPECT_EQ(provider_->asked, nullptr);
}

}  // namespace
