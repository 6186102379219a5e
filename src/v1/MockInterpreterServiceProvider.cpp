#include "connector/interpreter/v1/MockInterpreterServiceProvider.h"

#include <string>
#include <utility>

#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "v1/requestFaults.h"

namespace connector::interpreter::v1 {

using MessageFuture = connector::Future<std::unique_ptr<connector::Message>>;

MessageFuture MockInterpreterServiceProvider::handle(std::unique_ptr<Interrupt>&& message) {
    const auto request = std::move(message);
    return connector::makeReadyFuture<std::unique_ptr<connector::Message>>(
        std::make_unique<InterruptResponse>(request->uuid()));
}

MessageFuture MockInterpreterServiceProvider::handle(std::unique_ptr<FEval>&& message) {
    const auto request = std::move(message);
    auto response = std::make_unique<FEvalResponse>(request->uuid());
    if (request->nargout > maxNargout) {
        response->isError = true;
        response->faults.emplace_back(
            codeError, "The mock has no more than " + std::to_string(maxNargout) + " results.");
    } else {
        response->results = u"[";
        for (std::int32_t i = 0; i < request->nargout; ++i) response->results += u"{}";
        response->results += u"]";
    }
    return connector::makeReadyFuture<std::unique_ptr<connector::Message>>(std::move(response));
}

MessageFuture MockInterpreterServiceProvider::handle(std::unique_ptr<Eval>&& message) {
    const auto request = std::move(message);
    auto response = std::make_unique<EvalResponse>(request->uuid());
    response->responseStr = u"mock output";
    return connector::makeReadyFuture<std::unique_ptr<connector::Message>>(std::move(response));
}

}  // namespace connector::interpreter::v1
