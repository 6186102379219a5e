#include "ServeBackend.h"

#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/prctl.h>
#include <unistd.h>

#include "InProcessSession.h"
#include "connector/common/ContextState.h"
#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalSequenceServiceProvider.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/MockInterpreterServiceProvider.h"
#include "connector/json/escape.h"
#include "connector/wireWords.h"
#include "gateway/workers.h"
#include "messages/LocalServiceFramework.h"
#include "services/window.h"
#include "supervisor/Supervisor.h"

namespace app {

namespace {

namespace v1 = connector::interpreter::v1;

class InterpreterBackend : public ServeBackend {
public:
    InterpreterBackend(const Workplace& workplace, const std::map<std::string, std::string>& configuration)
        : session_(WindowSize(), workplace, configuration) {
        framework = session_.host().framework();
        serializer = session_.serializer();
        messages = session_.host().messages();
    }
    void configure(gateway::GatewayOptions& options) override {
        options.streaming = session_.host().requestCounter();
        options.isReadingInput = [this] {
            return isReady() && services::prompt::detail::isInCharBufferMode();
        };
        options.dequeMode = [this] { return session_.dequeMode(); };
    }
    // The code may be of a kind that no interrupt ends.
    std::chrono::milliseconds timeToStop() const override { return std::chrono::milliseconds(2500); }
    bool isReady() const override { return session_.host().requestGate()->isOpen(); }
    int standardOutput() const override { return session_.host().standardOutput(); }
    int standardError() const override { return session_.host().standardError(); }

private:
    InProcessSession session_;
};

/// Nothing of an interpreter is in this process, and the processes of interpreters cannot look into it.
class WorkerBackend : public ServeBackend {
public:
    explicit WorkerBackend(Workplace workplace) : workplace_(std::move(workplace)) {
        if (::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) {
            throw std::system_error(errno, std::generic_category(), "the process cannot be protected");
        }
        messages = std::make_shared<messages::LocalMessageService>();
    }
    void configure(gateway::GatewayOptions& options) override {
        options.makePort = gateway::workerPorts(supervisor_, workplace_.folder(), workplace_.venv());
    }
    // Interpreters that do not end are killed before.
    std::chrono::milliseconds timeToStop() const override { return std::chrono::seconds(10); }

private:
    const Workplace workplace_;
    supervisor::Supervisor supervisor_;
};

/// Answers streaming requests as the mock provider answers others.
void answerStreams(messages::LocalMessageService& messages,
                   const connector::message_service::JsonMessage& request) {
    using connector::common::DataBuffer;
    namespace wire = connector::wire;
    const auto publish = [&](const char* channel, const char* text) {
        messages.publish(channel, DataBuffer(connector::json::quoted(text)));
    };
    const connector::common::CurrentContext context(request.context);
    publish(wire::channel::prompt, "NO_PROMPT");
    publish(wire::channel::output, "mock output");
    publish(wire::channel::prompt, "BASE_PROMPT");
    publish(wire::channel::completion, wire::completion::success);
}

class MockBackend : public ServeBackend {
public:
    MockBackend() {
        framework = std::make_shared<messages::LocalServiceFramework>();
        serializer = std::make_shared<connector::json::JsonSerializer>();
        messages = std::make_shared<messages::LocalMessageService>();
        const v1::InterpreterJsonSerialization serialization(serializer);
        connector::container::registerSequenceContainer(*serializer);
        provide({typeid(v1::Eval), typeid(v1::FEval), typeid(v1::Interrupt)},
                std::make_shared<v1::MockInterpreterServiceProvider>());
        provide({typeid(connector::container::SequenceContainer)},
                std::make_shared<v1::FEvalSequenceServiceProvider>());
        requests_ = messages->subscribe(
            connector::wire::channel::evalRequest,
            [service = messages.get()](const auto& request) { answerStreams(*service, request); });
    }
    ~MockBackend() override {
        for (const auto& provider : providers_) framework->unregisterService(provider);
    }
    void configure(gateway::GatewayOptions&) override {}
    std::chrono::milliseconds timeToStop() const override { return std::chrono::milliseconds(2500); }

private:
    void provide(std::vector<std::type_index> types, std::shared_ptr<connector::ServiceProvider> provider) {
        framework->registerService({}, std::move(types), provider);
        providers_.push_back(std::move(provider));
    }

    std::vector<std::shared_ptr<connector::ServiceProvider>> providers_;
    std::unique_ptr<connector::message_service::Subscription> requests_;
};

}  // namespace

std::unique_ptr<ServeBackend> makeWorkerBackend(Workplace workplace) {
    return std::make_unique<WorkerBackend>(std::move(workplace));
}

std::unique_ptr<ServeBackend> makeInterpreterBackend(
    const Workplace& workplace, const std::map<std::string, std::string>& configuration) {
    return std::make_unique<InterpreterBackend>(workplace, configuration);
}

std::unique_ptr<ServeBackend> makeMockBackend() { return std::make_unique<MockBackend>(); }

}  // namespace app
