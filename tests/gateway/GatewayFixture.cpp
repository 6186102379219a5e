#include "GatewayFixture.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "LinkedPort.h"
#include "connector/common/ContextState.h"
#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/FEvalSequenceServiceProvider.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "connector/json/escape.h"
#include "fl/i18n/text.h"
#include "messages/LocalServiceFramework.h"

using namespace connector::interpreter::v1;
using connector::Message;
using connector::MutexLock;

static constexpr auto limit = std::chrono::seconds(10);

ScriptedInterpreter::MessageFuture ScriptedInterpreter::handle(std::unique_ptr<Interrupt>&& message) {
    signal(&ScriptedInterpreter::interrupts_);
    return connector::makeReadyFuture<std::unique_ptr<Message>>(
        std::make_unique<InterruptResponse>(message->uuid()));
}

ScriptedInterpreter::MessageFuture ScriptedInterpreter::handle(std::unique_ptr<FEval>&& message) {
    auto response = std::make_unique<FEvalResponse>(message->uuid());
    const auto type =
        connector::common::ContextState::current()->getOr<std::string>("clientType", std::string());
    response->results = fl::i18n::to_ustring("[" + connector::json::quoted(type) + "]");
    return connector::makeReadyFuture<std::unique_ptr<Message>>(std::move(response));
}

ScriptedInterpreter::MessageFuture ScriptedInterpreter::handle(std::unique_ptr<Eval>&& message) {
    auto response = std::make_unique<EvalResponse>(message->uuid());
    response->responseStr = message->mcode;
    if (message->mcode == u"drop") {
        connector::common::ContextState::current()->set("requestDropped", true);
        response->responseStr.clear();
    }
    if (message->mcode == u"throw") throw std::runtime_error("the service failed");
    if (message->mcode == u"wait") response->responseStr = waitFor(&ScriptedInterpreter::interrupts_);
    if (message->mcode == u"release") response->responseStr = waitFor(&ScriptedInterpreter::releases_);
    response->isError = response->responseStr != message->mcode && message->mcode != u"drop";
    return connector::makeReadyFuture<std::unique_ptr<Message>>(std::move(response));
}

std::u16string ScriptedInterpreter::waitFor(int ScriptedInterpreter::*event) {
    MutexLock lock(mutex_);
    const int before = this->*event;
    ++waiting_;
    changed_.notify_all();
    const bool came = changed_.wait_for(lock.native(), limit, [&] { return this->*event != before; });
    --waiting_;
    return came ? u"ended" : u"nobody ended it";
}

bool ScriptedInterpreter::waitForWaiting(int count) {
    MutexLock lock(mutex_);
    return changed_.wait_for(lock.native(), limit, [&] { return waiting_ == count; });
}

void ScriptedInterpreter::signal(int ScriptedInterpreter::*event) {
    const MutexLock lock(mutex_);
    ++(this->*event);
    changed_.notify_all();
}

GatewayFixture::GatewayFixture() : framework_(std::make_shared<messages::LocalServiceFramework>()) {
    const InterpreterJsonSerialization serialization(serializer_);
    framework_->registerService({}, {typeid(Eval), typeid(FEval), typeid(Interrupt)}, interpreter_);
    connector::container::registerSequenceContainer(*serializer_);
    framework_->registerService({}, {typeid(connector::container::SequenceContainer)},
                                std::make_shared<FEvalSequenceServiceProvider>());
}

GatewayFixture::~GatewayFixture() = default;

void GatewayFixture::start(gateway::GatewayOptions options) {
    options.host = "127.0.0.1";
    options.port = 0;
    options.token = TestClient::token;
    if (!options.makePort && std::getenv("NUMORA_TEST_LINK") != nullptr) {
        options.makePort = [this, isReadingInput = options.isReadingInput](auto& context, auto& messages,
                                                                           const auto&) {
            return std::make_unique<LinkedPort>(
                context, messages, worker::Link::Services{framework_, serializer_, isReadingInput},
                [this] { return isReady_; });
        };
    }
    gateway_ = std::make_unique<gateway::Gateway>(
        messages_, framework_, serializer_, [this] { return isReady_; }, std::move(options));
    gateway_->start();
}

std::string GatewayFixture::evalOf(const TestClient& client, const std::string& code) {
    return client.post("/connector/v1/Eval", R"({"mcode":")" + code + R"("})");
}

std::string GatewayFixture::handshake(bool hasToken) {
    const std::string ext = R"(,"ext":{"connector":{"token":")" + TestClient::token + R"("}})";
    return R"([{"channel":"/meta/handshake","version":"1.0","supportedConnectionTypes":["websocket",)"
           R"("long-polling"])" +
           (hasToken ? ext : "") + "}]";
}

bool GatewayFixture::waitForMetric(const std::string& line) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (get("/metrics").body.find("\n" + line + "\n") == std::string::npos) {
        if (std::chrono::steady_clock::now() > deadline) return false;
    }
    return true;
}
