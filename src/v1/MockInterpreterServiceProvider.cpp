#include "connector/interpreter/v1/MockInterpreterServiceProvider.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "connector/wireWords.h"

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
        response->faults.emplace_back(wire::faultCode::code,
                                      "nargout must be at most " + std::to_string(maxNargout) +
                                          ": the results would be longer than a message may be.");
    } else {
        const auto count = static_cast<std::size_t>(std::max(request->nargout, 0));
        response->results.reserve(2 + 2 * count);
        response->results = u"[";
        for (std::size_t i = 0; i < count; ++i) response->results += u"{}";
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
