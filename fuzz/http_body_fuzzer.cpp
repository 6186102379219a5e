// The bodies of requests over HTTP, up to the mock provider: each gets one answer, which is JSON.
//
// The first byte chooses the path, the rest is the body.

#include <cstdint>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalSequenceServiceProvider.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/MockInterpreterServiceProvider.h"
#include "connector/json/parse.h"
#include "dispatch/RequestDispatcher.h"
#include "endpoints/messageRequests.h"
#include "messages/LocalServiceFramework.h"

namespace {

namespace v1 = connector::interpreter::v1;

/// The services behind the requests.
class Backend {
public:
    Backend() {
        const v1::InterpreterJsonSerialization serialization(serializer_);
        connector::container::registerSequenceContainer(*serializer_);
        framework_->registerService({}, {typeid(v1::Eval), typeid(v1::FEval), typeid(v1::Interrupt)},
                                    std::make_shared<v1::MockInterpreterServiceProvider>());
        framework_->registerService({}, {typeid(connector::container::SequenceContainer)},
                                    std::make_shared<v1::FEvalSequenceServiceProvider>());
    }
    dispatch::RequestDispatcher& dispatcher() { return dispatcher_; }

private:
    const std::shared_ptr<connector::ServiceFramework> framework_ =
        std::make_shared<messages::LocalServiceFramework>();
    const std::shared_ptr<connector::json::JsonSerializer> serializer_ =
        std::make_shared<connector::json::JsonSerializer>();
    dispatch::RequestDispatcher dispatcher_{framework_, serializer_, {.threads = 1}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Backend backend;
    if (size == 0) return 0;
    gateway::HttpRequest request;
    request.body.assign(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::promise<gateway::HttpReply> promise;  // a second answer would end the program
    const auto done = [&](gateway::HttpReply reply) { promise.set_value(std::move(reply)); };
    switch (data[0] % 4) {
        case 0:
            gateway::endpoints::submitMessage(backend.dispatcher(), "connector/v1/Eval", request, done);
            break;
        case 1:
            gateway::endpoints::submitMessage(backend.dispatcher(), "connector/v1/FEval", request, done);
            break;
        case 2:
            gateway::endpoints::submitMessage(backend.dispatcher(), "connector/v1/Interrupt", request, done);
            break;
        default:
            gateway::endpoints::submitEnvelope(backend.dispatcher(), request, done);
    }
    const auto reply = promise.get_future().get();
    connector::json::parse(reply.body);
    if (reply.status != 200 && reply.status != 400 && reply.status != 404) std::abort();
    return 0;
}
