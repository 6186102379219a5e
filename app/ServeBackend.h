#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>

#include <unistd.h>

#include "Workplace.h"
#include "connector/ServiceFramework.h"
#include "connector/json/JsonSerializer.h"
#include "gateway/GatewayOptions.h"
#include "messages/LocalMessageService.h"

namespace app {

/// What `numora serve` lets clients reach.
///
/// Threads: made and destroyed on one thread; `isReady` from any.
class ServeBackend {
public:
    virtual ~ServeBackend() = default;
    virtual bool isReady() const { return true; }
    /// Sets what the gateway needs for this.
    virtual void configure(gateway::GatewayOptions& options) = 0;
    /// How long it may take to stop.
    virtual std::chrono::milliseconds timeToStop() const = 0;
    /// The program's own standard output and error: file descriptors, valid as long as this is.
    virtual int standardOutput() const { return STDOUT_FILENO; }
    virtual int standardError() const { return STDERR_FILENO; }

    // The first two are null where interpreters are processes of their own.
    std::shared_ptr<connector::ServiceFramework> framework;
    std::shared_ptr<connector::json::JsonSerializer> serializer;
    std::shared_ptr<messages::LocalMessageService> messages;
};

/// Interpreters in processes of their own, which start on demand. Those that name no folder or no virtual
/// environment have that of `workplace`.
std::unique_ptr<ServeBackend> makeWorkerBackend(Workplace workplace);

/// An interpreter in this process.  Blocks: until it takes requests.
std::unique_ptr<ServeBackend> makeInterpreterBackend(const Workplace& workplace,
                                                     const std::map<std::string, std::string>& configuration);

/// Fixed answers, without an interpreter and without streaming.
std::unique_ptr<ServeBackend> makeMockBackend();

}  // namespace app
