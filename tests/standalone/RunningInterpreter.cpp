#include "RunningInterpreter.h"

#include <chrono>

#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "fl/i18n/text.h"

namespace v1 = connector::interpreter::v1;

namespace {

std::unique_ptr<standalone::StandaloneHost> startHost() {
    standalone::blockInterpreterSignals();
    return std::make_unique<standalone::StandaloneHost>();
}

}  // namespace

RunningInterpreter::RunningInterpreter()
    : host_(startHost()),
      module_(std::make_unique<connector::interpreter::Module>(connector::interpreter::ModuleServices{
          host_->framework(), host_->configuration(), serializer_, host_->zvm()})) {}

RunningInterpreter::~RunningInterpreter() {
    joinBackground();
    module_.reset();
}

void RunningInterpreter::joinBackground() {
    for (auto& thread : threads_) thread.join();
    threads_.clear();
}

connector::Future<std::unique_ptr<connector::Message>> RunningInterpreter::deliver(
    std::unique_ptr<connector::Message> message, std::shared_ptr<connector::common::ContextState> context) {
    return host_->framework()->deliver({}, std::move(message), std::move(context));
}

RunningInterpreter::EvalResponse RunningInterpreter::eval(const std::u16string& code, int timeoutMs,
                                                          int width, int height) {
    auto request = std::make_unique<v1::Eval>("test");
    request->mcode = code;
    request->timeoutMs = timeoutMs;
    request->width = width;
    request->height = height;
    const auto message = deliver(std::move(request)).get();
    const auto& response = dynamic_cast<const v1::EvalResponse&>(*message);
    return {response.responseStr, response.faults, response.isError, response.clearCommandWindow,
            response.promptType};
}

std::string RunningInterpreter::call(const std::u16string& function, std::vector<std::u16string> arguments,
                                     int nargout, const std::string& dequeMode, int timeoutMs) {
    auto request = std::make_unique<v1::FEval>("test");
    request->function = function;
    request->arguments = std::move(arguments);
    request->nargout = nargout;
    request->dequeMode = dequeMode;
    request->timeoutMs = timeoutMs;
    const auto message = deliver(std::move(request)).get();
    const auto& response = dynamic_cast<const v1::FEvalResponse&>(*message);
    return response.faults.empty() ? fl::i18n::to_string(response.results) : response.faults.front().message;
}

void RunningInterpreter::interrupt() { deliver(std::make_unique<v1::Interrupt>("interrupt")).get(); }

std::string RunningInterpreter::text(const EvalResponse& response) {
    return fl::i18n::to_string(response.responseStr);
}

bool RunningInterpreter::eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}
