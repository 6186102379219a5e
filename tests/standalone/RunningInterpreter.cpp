#include "RunningInterpreter.h"

#include <cstdint>

#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "fl/i18n/text.h"
#include "services/window.h"
#include "zvm/detail.h"

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

RunningInterpreter::~RunningInterpreter() = default;

StreamingInterpreter::StreamingInterpreter() {
    module_.reset();
    module_ = std::make_unique<connector::interpreter::Module>(connector::interpreter::ModuleServices{
        host_->framework(), host_->configuration(), serializer_, host_->zvm(), host_->messageServiceFactory(),
        host_->shadowService(), host_->requestGate(), nullptr});
}

connector::Future<std::unique_ptr<connector::Message>> RunningInterpreter::deliver(
    std::unique_ptr<connector::Message> message, ContextPtr context) {
    return host_->framework()->deliver({}, std::move(message), std::move(context));
}

RunningInterpreter::EvalResponse RunningInterpreter::eval(const std::u16string& code, int timeoutMs,
                                                          int width, int height, ContextPtr context) {
    auto request = std::make_unique<v1::Eval>("test");
    request->mcode = code;
    request->timeoutMs = timeoutMs;
    request->width = width;
    request->height = height;
    const auto message = deliver(std::move(request), std::move(context)).get();
    const auto& response = dynamic_cast<const v1::EvalResponse&>(*message);
    return {response.responseStr, response.faults, response.isError, response.clearCommandWindow,
            response.promptType};
}

std::string RunningInterpreter::call(const std::u16string& function, std::vector<std::u16string> arguments,
                                     int nargout, const std::string& dequeMode, int timeoutMs,
                                     ContextPtr context) {
    auto request = std::make_unique<v1::FEval>("test");
    request->function = function;
    request->arguments = std::move(arguments);
    request->nargout = nargout;
    request->dequeMode = dequeMode;
    request->timeoutMs = timeoutMs;
    const auto message = deliver(std::move(request), std::move(context)).get();
    const auto& response = dynamic_cast<const v1::FEvalResponse&>(*message);
    return response.faults.empty() ? fl::i18n::to_string(response.results) : response.faults.front().message;
}

void RunningInterpreter::interrupt() { deliver(std::make_unique<v1::Interrupt>("interrupt")).get(); }

void RunningInterpreter::define(const std::u16string& name, void (*function)()) {
    const auto address = std::to_string(reinterpret_cast<std::uintptr_t>(function));
    eval(u"import ctypes\n" + name + u" = ctypes.PYFUNCTYPE(None)(" + fl::i18n::to_ustring(address) + u")");
}

void RunningInterpreter::defineBegin() {
    define(u"begin", [] { ++begun; });
}

std::future<RunningInterpreter::EvalResponse> RunningInterpreter::startEval(const std::u16string& code) {
    defineBegin();
    return start([this, code] { return eval(u"begin()\n" + code); });
}

std::future<void> RunningInterpreter::submit(std::shared_ptr<cmddistributor::CmdRequest> request,
                                             cmddistributor::RunOptions options) {
    const auto distributor = host_->zvm()->getCmdDistributor();
    const auto id = zvm::detail::createID();
    const auto ended = std::make_shared<std::promise<void>>();
    distributor->enqueue(id, std::move(request), std::move(options), nullptr);
    distributor->addContinuation(id, [ended] { ended->set_value(); });
    distributor->setReadyToExecute(id);
    return ended->get_future();
}

std::string RunningInterpreter::text(const EvalResponse& response) {
    return fl::i18n::to_string(response.responseStr);
}

void RunningInterpreter::expectEval(const std::u16string& code, const std::string& text, int promptType) {
    const EvalResponse response = eval(code);
    EXPECT_EQ(answer(response), text);
    EXPECT_EQ(response.promptType, promptType) << text;
    EXPECT_FALSE(response.isError) << text;
}

std::string RunningInterpreter::answer(const EvalResponse& response) {
    return response.faults.empty() ? text(response) : response.faults.front().message;
}

bool RunningInterpreter::reaches(nmutil::prompt::InputRequester prompt) {
    return eventually([prompt] { return services::prompt::getInputRequester() == prompt; });
}
