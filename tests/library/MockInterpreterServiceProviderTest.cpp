#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "connector/interpreter/v1/MockInterpreterServiceProvider.h"

namespace connector::interpreter::v1 {
namespace {

class MockInterpreterServiceProviderTest : public testing::Test {
protected:
    MockInterpreterServiceProviderTest() { provider_->start(); }

    /// The response, which has to be there at once, as the message service gets it.
    template <class Response>
    std::unique_ptr<Response> answer(std::unique_ptr<connector::Message> request) const {
        connector::ServiceProvider& service = *provider_;
        auto future = service.handle(std::move(request));
        EXPECT_TRUE(future.isReady());
        auto response = future.get();
        EXPECT_TRUE(dynamic_cast<Response*>(response.get()));
        return std::unique_ptr<Response>(dynamic_cast<Response*>(response.release()));
    }

    const std::shared_ptr<MockInterpreterServiceProvider> provider_ =
        std::make_shared<MockInterpreterServiceProvider>();
};

TEST_F(MockInterpreterServiceProviderTest, answersEvaluationsAndInterruptsWithNothingButTheFixedText) {
    const auto eval = answer<EvalResponse>(std::make_unique<Eval>("e"));
    EXPECT_EQ(eval->uuid(), "e");
    EXPECT_EQ(eval->responseStr, u"mock output");
    EXPECT_FALSE(eval->isError || eval->clearCommandWindow || eval->promptType != 0);
    EXPECT_EQ(answer<InterruptResponse>(std::make_unique<Interrupt>("i"))->uuid(), "i");
}

TEST_F(MockInterpreterServiceProviderTest, answersFunctionCallsWithOneObjectForEachResult) {
    const auto call = [this](std::int32_t nargout) {
        auto request = std::make_unique<FEval>("f");
        request->nargout = nargout;
        return answer<FEvalResponse>(std::move(request));
    };
    EXPECT_EQ(call(0)->results, u"[]");
    EXPECT_EQ(call(3)->results, u"[{}{}{}]");
    EXPECT_EQ(call(3)->uuid(), "f");
    EXPECT_EQ(call(std::numeric_limits<std::int32_t>::min())->results, u"[]");
    const auto most = call(MockInterpreterServiceProvider::maxNargout);
    EXPECT_EQ(most->results.size(), 2U + 2U * MockInterpreterServiceProvider::maxNargout);
    EXPECT_FALSE(most->isError);
    const auto tooMany = call(std::numeric_limits<std::int32_t>::max());
    EXPECT_TRUE(tooMany->isError);
    EXPECT_EQ(tooMany->faults.size(), 1U);
    EXPECT_EQ(tooMany->results, u"[]");
}

}  // namespace
}  // namespace connector::interpreter::v1
