#include <future>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "FunctionFramework.h"
#include "connector/ServiceStopped.h"
#include "dispatch/RequestDispatcher.h"
#include "dispatch/readMessage.h"

namespace {

using dispatch::RequestDispatcher;
using Response = FunctionFramework::Response;

connector::Future<Response> echo(const JsonRequest& request) {
    return connector::makeReadyFuture<Response>(std::make_unique<JsonRequest>(request.object));
}

class RequestDispatcherTest : public testing::Test {
protected:
    std::future<dispatch::Answer> start(const std::string& type, std::string message) {
        auto promise = std::make_shared<std::promise<dispatch::Answer>>();
        dispatcher_.submit(type, std::make_shared<const std::string>(std::move(message)), nullptr,
                           [promise](dispatch::Answer answer) { promise->set_value(std::move(answer)); });
        return promise->get_future();
    }
    dispatch::Answer submit(const std::string& type, const std::string& message) {
        return start(type, message).get();
    }
    dispatch::Answer submitEval() { return submit("test/Request", "{}"); }
    const std::shared_ptr<FunctionFramework> framework_ = std::make_shared<FunctionFramework>(echo);
    RequestDispatcher dispatcher_{
        framework_, JsonRequest::makeSerializer(), {.threads = 1, .queueLength = 2, .queueBytes = 100'000}};
};

TEST_F(RequestDispatcherTest, failuresBecomeStatuses) {
    const auto unreadable = submit("test/Request", R"({"bad":true})");
    EXPECT_EQ(unreadable.status, 400);
    EXPECT_EQ(unreadable.json, R"({"error":"bad request"})");
    EXPECT_EQ(submit("test/Other", "{}").status, 404);
    EXPECT_EQ(submit("test/Request", "[]").status, 400);
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
    const std::string large = "{" + std::string(dispatch::largeBody, ' ') + "}";  // two of them are too much
    auto first = start("test/Request", large);
    begun.get_future().wait();
    auto bad = start("test/Request", large + "]");
    EXPECT_EQ(submit("test/Request", large).status, 429);
    go.set_value();
    EXPECT_EQ(first.get().status, 200);
    EXPECT_EQ(bad.get().status, 400);
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
        submit("test/Request", response);
    }
    submit("test/Request", "[]");
    submit("test/Other", "{}");
    const auto outcomes = dispatcher_.metrics().outcomes;
    EXPECT_EQ(outcomes.size(), 5U);
    for (const char* outcome : {"success", "error", "timeout", "fault", "refused"}) {
        const auto found = outcomes.find({"test/Request", outcome});
        EXPECT_TRUE(found != outcomes.end() && found->second == 1) << outcome;
    }
}

}  // namespace
