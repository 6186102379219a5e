#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "connector/ServiceStopped.h"
#include "connector/json/parse.h"
#include "dispatch/RequestDispatcher.h"

namespace {

using connector::Message;
using dispatch::RequestDispatcher;
using Poco::JSON::Object;

struct Note : Message {
    explicit Note(Object::Ptr json) : object(std::move(json)) {}
    Object::Ptr object;
};

/// Gives what the test wants for each message.
class TestFramework : public connector::ServiceFramework {
public:
    void registerService(const connector::Address&, std::vector<std::type_index>,
                         std::shared_ptr<connector::ServiceProvider>) override {}
    void unregisterService(const std::shared_ptr<connector::ServiceProvider>&) override {}
    connector::Future<std::unique_ptr<Message>> deliver(
        const connector::Address&, std::unique_ptr<Message> message,
        std::shared_ptr<connector::common::ContextState> state) override {
        context = std::move(state);
        return onMessage(std::move(message));
    }

    std::function<connector::Future<std::unique_ptr<Message>>(std::unique_ptr<Message>)> onMessage =
        [](std::unique_ptr<Message> message) { return connector::makeReadyFuture(std::move(message)); };
    std::shared_ptr<connector::common::ContextState> context;
};

class RequestDispatcherTest : public testing::Test {
protected:
    RequestDispatcherTest() {
        serializer_->registerType(
            "test/Note", typeid(Note),
            [](const Object::Ptr& object) -> std::unique_ptr<Message> {
                if (object->has("bad")) throw Poco::RangeException("Value too large.");
                return std::make_unique<Note>(object);
            },
            [](const Message& message) { return dynamic_cast<const Note&>(message).object; });
    }

    dispatch::Answer submit(const std::string& type, const Object::Ptr& message) {
        std::promise<dispatch::Answer> promise;
        dispatcher_.submit(type, message, nullptr,
                           [&](dispatch::Answer answer) { promise.set_value(std::move(answer)); });
        return promise.get_future().get();
    }
    dispatch::Answer submitNote() { return submit("test/Note", new Object); }
    const std::shared_ptr<TestFramework> framework_ = std::make_shared<TestFramework>();
    const std::shared_ptr<connector::json::JsonSerializer> serializer_ =
        std::make_shared<connector::json::JsonSerializer>();
    RequestDispatcher dispatcher_{
        framework_, serializer_, {.threads = 1, .queueLength = 2, .queueBytes = 1000}};
};

TEST_F(RequestDispatcherTest, failuresBecomeStatuses) {
    Object::Ptr bad = new Object;
    bad->set("bad", true);
    const auto unreadable = submit("test/Note", bad);
    EXPECT_EQ(unreadable.status, 400);
    EXPECT_EQ(unreadable.json, R"({"error":"Value too large."})");
    EXPECT_EQ(submit("test/Other", new Object).status, 404);
    EXPECT_EQ(submit("test/Note", nullptr).status, 400);
    using MessageFuture = connector::Future<std::unique_ptr<Message>>;
    const auto failing = [](const auto& error) {
        return connector::makeFailedFuture<std::unique_ptr<Message>>(std::make_exception_ptr(error));
    };
    const std::pair<std::function<MessageFuture()>, int> cases[] = {
        {[&] { return failing(connector::NoService("nobody")); }, 404},
        {[&] { return failing(connector::ServiceStopped()); }, 503},
        {[&] { return failing(std::runtime_error("it broke")); }, 500},
        {[]() -> MessageFuture { throw 1; }, 500},
        {[] { return connector::makeReadyFuture(std::unique_ptr<Message>()); }, 500},
    };
    for (const auto& [deliver, status] : cases) {
        framework_->onMessage = [&deliver = deliver](std::unique_ptr<Message>) { return deliver(); };
        const auto answer = submitNote();
        EXPECT_EQ(answer.status, status);
        EXPECT_TRUE(answer.json.starts_with(R"({"error":")")) << answer.json;
    }
}

TEST_F(RequestDispatcherTest, readsLargeBodiesInTheirTurn) {
    std::promise<void> begun, go;
    framework_->onMessage = [&](std::unique_ptr<Message> message) {
        begun.set_value();
        go.get_future().wait();
        return connector::makeReadyFuture(std::move(message));
    };
    using Read = RequestDispatcher::Read;
    const auto submitUnread = [this](std::size_t bytes, std::function<Read()> read) {
        auto promise = std::make_shared<std::promise<dispatch::Answer>>();
        dispatcher_.submitUnread(
            bytes, std::move(read), std::make_shared<connector::common::ContextState>(),
            [promise](dispatch::Answer answer) { promise->set_value(std::move(answer)); });
        return promise->get_future();
    };
    auto first = submitUnread(900, [] { return Read{"test/Note", new Object}; });
    begun.get_future().wait();
    auto bad = submitUnread(900, []() -> Read { throw std::runtime_error("no JSON"); });
    EXPECT_EQ(submitUnread(200, [] { return Read{}; }).get().status, 429);
    go.set_value();
    EXPECT_EQ(first.get().status, 200);
    EXPECT_EQ(bad.get().json, R"({"error":"no JSON"})");
    EXPECT_EQ(submitUnread(1000, [] { return Read{"test/Other", new Object}; }).get().status, 404);
}

TEST_F(RequestDispatcherTest, stampsRequestsAndCountsTheirOutcomesByType) {
    submitNote();
    EXPECT_TRUE(framework_->context->has("requestStartTime")) << "what comes before an interrupt is dropped";
    for (const char* response :
         {R"({"isError":true})", R"({"messageFaults":[{"faultCode":"Request.Timeout"}]})",
          R"({"messageFaults":[{"faultCode":"NUMORA.CodeError"}]})"}) {
        submit("test/Note", connector::json::parse(response).extract<Object::Ptr>());
    }
    submit("test/Note", nullptr);
    submit("test/Other", new Object);
    const auto outcomes = dispatcher_.metrics().outcomes;
    EXPECT_EQ(outcomes.size(), 5U);
    for (const char* outcome : {"success", "error", "timeout", "fault", "refused"}) {
        const auto found = outcomes.find({"test/Note", outcome});
        EXPECT_TRUE(found != outcomes.end() && found->second == 1) << outcome;
    }
}

}  // namespace
