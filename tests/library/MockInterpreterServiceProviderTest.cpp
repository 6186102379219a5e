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

/// The response, which has to be there at once, as the message service gets it.
template <class Response>
std::unique_ptr<Response> answer(std::unique_ptr<connector::Message> request) {
    const auto provider = std::make_shared<MockInterpreterServiceProvider>();
    provider->start();
    auto future = static_cast<connector::ServiceProvider&>(*provider).handle(std::move(request));
    EXPECT_TRUE(future.isReady());
    auto response = future.get();
    return std::unique_ptr<Response>(&dynamic_cast<Response&>(*response.release()));
}

TEST(MockInterpreterServiceProviderTest, answersEvaluationsAndInterruptsWithNothingButTheFixedText) {
    const auto eval = answer<EvalResponse>(std::make_unique<Eval>("e"));
    EXPECT_EQ(eval->uuid(), "e");
    EXPECT_EQ(eval->responseStr, u"mock output");
    EXPECT_FALSE(eval->isError || eval->clearCommandWindow || eval->promptType != 0);
    EXPECT_EQ(answer<InterruptResponse>(std::make_unique<Interrupt>("i"))->uuid(), "i");
}

TEST(MockInterpreterServiceProviderTest, answersFunctionCallsWithOneObjectForEachResult) {
    constexpr std::int32_t most = MockInterpreterServiceProvider::maxNargout;
    for (const std::int32_t nargout : {-1, 0, 3, most, most + 1}) {
        auto request = std::make_unique<FEval>("f");
        request->nargout = nargout;
        const auto response = answer<FEvalResponse>(std::move(request));
        std::u16string objects;
        for (std::int32_t i = 0; i < nargout && nargout <= most; ++i) objects += u"{}";
        EXPECT_EQ(response->results, u'[' + objects + u']');
        EXPECT_EQ(response->isError, nargout > most);
    }
}

}  // namespace
}  // namespace connector::interpreter::v1
