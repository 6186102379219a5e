#pragma once

#include <gmock/gmock.h>

#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/InterpreterServiceProviderImpl.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "services/LocalConfiguration.h"
#include "support/FakeHost.h"
#include "support/threads.h"
#include "v1/StartupWakeUp.h"

namespace connector::interpreter::v1 {

/// The service on a fake host, as its clients reach it.
class InterpreterFixture : public testing::Test {
protected:
    InterpreterFixture() {
        StartupWakeUp::begin(nullptr);
        provider_->start();
    }
    ~InterpreterFixture() override {
        host_.distributor->stopWorker();
        StartupWakeUp::end();
    }

    std::unique_ptr<EvalResponse> eval(std::u16string code, std::int32_t timeoutMs = 0,
                                       std::int32_t columns = 0, std::int32_t rows = 0) {
        auto request = std::make_unique<Eval>("id");
        request->mcode = std::move(code);
        request->timeoutMs = timeoutMs;
        request->width = columns;
        request->height = rows;
        return answer<EvalResponse>(std::move(request));
    }
    static std::unique_ptr<FEval> functionCall(std::int32_t timeoutMs = 0) {
        auto message = std::make_unique<FEval>("id");
        message->function = u"f";
        message->dequeMode = "ppe";
        message->timeoutMs = timeoutMs;
        return message;
    }
    std::unique_ptr<FEvalResponse> call(std::unique_ptr<FEval> message = functionCall()) {
        return answer<FEvalResponse>(std::move(message));
    }
    void interrupt() { provider_->handle(std::make_unique<Interrupt>("interrupt")).get(); }

    static std::string faults(const connector::common::v1::Response& response) {
        std::string all;
        for (const auto& fault : response.faults) all += fault.faultCode + ": " + fault.message + ";";
        return all;
    }
    cmddistributor::RunOptions lastOptions() const { return host_.distributor->enqueued().back().options; }

    fake::FakeHost host_;
    std::shared_ptr<standalone::LocalConfiguration> configuration_ =
        std::make_shared<standalone::LocalConfiguration>(std::map<std::string, std::string>());
    std::shared_ptr<InterpreterServiceProviderImpl> provider_ =
        std::make_shared<InterpreterServiceProviderImpl>(configuration_, host_.zvm);
    std::shared_ptr<common::ContextState> context_ = std::make_shared<common::ContextState>();

private:
    template <class Response, class Request>
    std::unique_ptr<Response> answer(std::unique_ptr<Request> request) {
        const common::CurrentContext current(context_);
        auto future = provider_->handle(std::move(request));
        EXPECT_TRUE(future.isReady());
        auto response = future.get();
        return std::unique_ptr<Response>(dynamic_cast<Response*>(response.release()));
    }
};

}  // namespace connector::interpreter::v1
