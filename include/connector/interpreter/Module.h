#pragma once

#include <memory>
#include <vector>

#include "connector/ServiceFramework.h"
#include "connector/configuration/Configuration.h"
#include "connector/interpreter/v1/AsyncEvalService.h"
#include "connector/json/JsonSerializer.h"
#include "iqm/plugins.h"
#include "zvm/ZVM.h"

namespace connector::interpreter {

class ConnectorEventMgrBridge;

/// What the module is given by the host that loads it. `zvm` is null where no interpreter runs.
struct ModuleServices {
    std::shared_ptr<ServiceFramework> framework;
    std::shared_ptr<configuration::Configuration> configuration;
    std::shared_ptr<json::JsonSerializer> serializer;
    std::shared_ptr<zvm::ZVM> zvm;
    // For streaming evaluation, see v1::AsyncEvalServices, and events; without the factory there are none.
    std::shared_ptr<message_service::MessageServiceFactory> messageServiceFactory{};
    std::shared_ptr<shadow_files::v1::ShadowService> shadowService{};
    std::shared_ptr<common::RequestGate> requestGate{};
    std::shared_ptr<common::RequestTracker> requestTracker{};
};

/// The module's start-up and end: registers the messages' JSON forms, the evaluation plug-in and the services
/// with the host, and queues the wake-up of the interpreter connection, on which evaluations wait.
///
/// Threads: made and destroyed on one thread, with the host's environment installed all the while.
class Module {
public:
    explicit Module(ModuleServices services);
    /// Stops the services; requests under way are released as their stop hooks say.
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

private:
    const ModuleServices services_;
    nmutil::ScopedFactoryRegistration plugin_;
    std::vector<std::shared_ptr<ServiceProvider>> providers_;
    std::shared_ptr<v1::AsyncEvalService> asyncEval_;
    std::unique_ptr<ConnectorEventMgrBridge> eventBridge_;
};

}  // namespace connector::interpreter
