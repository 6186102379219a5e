#include "connector/interpreter/Module.h"

#include <typeindex>
#include <utility>

#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/ConnectorEvalPlugin.h"
#include "connector/interpreter/ConnectorEventMgrBridge.h"
#include "connector/interpreter/v1/FEvalSequenceServiceProvider.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "connector/interpreter/v1/InterpreterServiceProviderImpl.h"
#include "iqm/plugins.h"
#include "v1/StartupWakeUp.h"

namespace connector::interpreter {

Module::Module(ModuleServices services)
    : services_(std::move(services)),
      plugin_(iqm::PacketInfo::registerPlugin2(
          ConnectorEvalPlugin::registeredName,
          [](iqm::PluginOptions options, nmutil::contextmgr::NcrID) {
              return std::make_unique<ConnectorEvalPlugin>(std::move(options));
          },
          false)) {
    const v1::InterpreterJsonSerialization serialization(services_.serializer);
    container::registerSequenceContainer(*services_.serializer);
    v1::StartupWakeUp::begin(services_.zvm);
    auto provider =
        std::make_shared<v1::InterpreterServiceProviderImpl>(services_.configuration, services_.zvm);
    services_.framework->registerService({}, {typeid(v1::Eval), typeid(v1::FEval), typeid(v1::Interrupt)},
                                         provider);
    providers_.push_back(std::move(provider));
    // Last, because they are stopped in this order: it waits for requests that the interpreter's releases.
    auto sequences = std::make_shared<v1::FEvalSequenceServiceProvider>();
    services_.framework->registerService({}, {typeid(container::SequenceContainer)}, sequences);
    providers_.push_back(std::move(sequences));
    if (services_.messageServiceFactory) {
        asyncEval_ = v1::AsyncEvalService::create({services_.zvm, services_.messageServiceFactory,
                                                   services_.shadowService, services_.requestGate,
                                                   services_.requestTracker});
        eventBridge_ = std::make_unique<ConnectorEventMgrBridge>(services_.messageServiceFactory);
    }
}

Module::~Module() {
    eventBridge_.reset();
    asyncEval_.reset();
    for (const auto& provider : providers_) services_.framework->unregisterService(provider);
    v1::StartupWakeUp::end();
}

}  // namespace connector::interpreter
