#include "ServeBackend.h"

#include <vector>

#include <unistd.h>

#include "InProcessSession.h"
#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalSequenceServiceProvider.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/MockInterpreterServiceProvider.h"
#include "messages/LocalServiceFramework.h"
#include "services/window.h"

namespace app {

namespace {

namespace v1 = connector::interpreter::v1;

class InterpreterBackend : public ServeBackend {
public:
    InterpreterBackend() : session_(WindowSize()) {
        framework = session_.host().framework();
        serializer = session_.serializer();
        messages = session_.host().messages();
        streaming = session_.host().requestCounter();
    }
    bool isReady() const override { return session_.host().requestGate()->isOpen(); }
    bool isReadingInput() const override {
        return isReady() && services::prompt::detail::isInCharBufferMode();
    }
    int standardOutput() const override { return session_.host().standardOutput(); }

private:
    InProcessSession session_;
};

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
    }
    ~MockBackend() override {
        for (const auto& provider : providers_) framework->unregisterService(provider);
    }
    bool isReady() const override { return true; }
    int standardOutput() const override { return STDOUT_FILENO; }

private:
    void provide(std::vector<std::type_index> types, std::shared_ptr<connector::ServiceProvider> provider) {
        framework->registerService({}, std::move(types), provider);
        providers_.push_back(std::move(provider));
    }

    std::vector<std::shared_ptr<connector::ServiceProvider>> providers_;
};

}  // namespace

std::unique_ptr<ServeBackend> makeInterpreterBackend() { return std::make_unique<InterpreterBackend>(); }

std::unique_ptr<ServeBackend> makeMockBackend() { return std::make_unique<MockBackend>(); }

}  // namespace app
