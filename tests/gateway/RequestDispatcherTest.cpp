#include <future>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "FunctionFramework.h"
#include "connector/ServiceStopped.h"
#include "connector/json/parse.h"
#include "dispatch/RequestDispatcher.h"

namespace {

using dispatch::RequestDispatcher;
using Poco::JSON::Object;
using Response = FunctionFramework::Response;

connector::Future<Response> echo(const JsonRequest& request) {
    return connector::makeReadyFuture<Response>(std::make_unique<JsonRequest>(request.object));
}

class RequestDispatcherTest : public testing::Test {
protected:
    dispatch::Answer submit(const std::string& type, const Object::Ptr& message) {
        std::promise<dispatch::Answer> promise;
        dispatcher_.submit(type, message, nullptr,
                           [&](dispatch::Answer answer) { promise.set_value(std::move(answer)); });
        return promise.get_future().get();
    }
    static Object::Ptr read(const char* text) { return connector::json::parse(text).extract<Object::Ptr>(); }
    dispatch::Answer submitEval() { return submit("test/Request", new Object); }
    const std::shared_ptr<FunctionFramework> framework_ = std::make_shared<FunctionFramework>(echo);
    RequestDispatcher dispatcher_{
        framework_, JsonRequest::makeSerializer(), {.threads = 1, .queueLength = 2, .queueBytes = 1000}};
};

TEST_F(RequestDispatcherTest, failuresBecomeStatuses) {
    const auto unreadable = submit("test/Request", read(R"({"bad":true})"));
    EXPECT_EQ(unreadable.status, 400);
    EXPECT_EQ(unreadable.json, R"({"error":"bad request"})");
    EXPECT_EQ(submit("test/Other", new Object).status, 404);
    EXPECT_EQ(submit("test/Request", nullptr).status, 400);
    const auto failing = [](const auto& error) {
        return connector::makeFailedFuture<Response>(std::make_exception_ptr(error));
    };
    const std::pair<FunctionFramework::Function, int> cases[] = {
        {[&](const auto&) { return failing(connector::NoService("nobody")); }, 404},
        {[&](const auto&) { return failing(connector::ServiceStopped()); }, 503},
        {[&](const auto&) { return failing(std::runtime_error("it broke")); }, 500},
        {[](const auto&) -> connector::Future<Response> { throw 1; }, 500},
        {[](const auto&) { return connector::makeReadyFuture(Response()); }, 500},
    };
    for (const auto& [onRequest, status] : cases) {
        framework_->onRequest = onRequest;
        const auto answer = submitEval();
        EXPECT_EQ(answer.status, status);
        EXPECT_TRUE(answer.json.starts_with(R"({"error":")")) << answer.json;
    }
}

TEST_F(RequestDispatcherTest, readsLargeBodiesInTheirTurn) {
    std::promise<void> begun, go;
    framework_->onRequest = [&](const JsonRequest& request) {
        begun.set_value();
        go.get_future().wait();
        return echo(request);
    };
    using Read = RequestDispatcher::Read;
    const auto submitUnread = [this](std::size_t bytes, std::function<Read()> read) {
        auto promise = std::make_shared<std::promise<dispatch::Answer>>();
        dispatcher_.submitUnread(
            bytes, std::move(read), std::make_shared<connector::common::ContextState>(),
            [promise](dispatch::Answer answer) { promise->set_value(std::move(answer)); });
        return promise->get_future();
    };
    auto first = submitUnread(900, [] { return Read{"test/Request", new Object}; });
    begun.get_future().wait();
    auto bad = submitUnread(900, []() -> Read { throw std::runtime_error("no JSON"); });
    EXPECT_EQ(submitUnread(200, [] { return Read{}; }).get().status, 429);
    go.set_value();
    EXPECT_EQ(first.get().status, 200);
    EXPECT_EQ(bad.get().json, R"({"error":"no JSON"})");
    EXPECT_EQ(submitUnread(1000, [] { return Read{"test/Other", new Object}; }).get().status, 404);
}

TEST_F(RequestDispatcherTest, stampsRequestsAndCountsTheirOutcomesByType) {
    framework_->onRequest = [](const JsonRequest& request) {
        EXPECT_TRUE(request.context->has("requestStartTime")) << "what comes before an interrupt is dropped";
        return echo(request);
    };
    submitEval();
    for (const char* response :
         {R"({"isError":true})", R"({"messageFaults":[{"faultCode":"Request.Timeout"}]})",
          R"({"messageFaults":[{"faultCode":"NUMORA.CodeError"}]})"}) {
        submit("test/Request", read(response));
    }
    submit("test/Request", nullptr);
    submit("test/Other", new Object);
    const auto outcomes = dispatcher_.metrics().outcomes;
    EXPECT_EQ(outcomes.size(), 5U);
    for (const char* outcome : {"success", "error", "timeout", "fault", "refused"}) {
        const auto found = outcomes.find({"test/Request", outcome});
        EXPECT_TRUE(found != outcomes.end() && found->second == 1) << outcome;
    }
}

}  // namespace
