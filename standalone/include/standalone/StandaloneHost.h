#pragma once

#include <chrono>
#include <memory>

#include "connector/ServiceFramework.h"
#include "connector/common/requests.h"
#include "connector/configuration/Configuration.h"
#include "connector/shadow_files/v1/ShadowService.h"
#include "messages/LocalMessageService.h"
#include "messages/RequestCounter.h"
#include "standalone/HostOptions.h"
#include "standalone/process.h"
#include "zvm/ZVM.h"

namespace standalone {

/// A complete host of its own: an embedded CPython on a thread of its own, its request queue, events,
/// services and configuration.
///
/// One at a time in a process, and, because NumPy cannot be loaded twice, one in the life of a process.
/// Before it is made, the calling thread blocks SIGINT and SIGRTMIN with `blockInterpreterSignals`, so that
/// every thread made later does; only the interpreter thread takes them.
class StandaloneHost {
public:
    /// Starts the interpreter and installs the host.
    /// Throws: std::runtime_error, when CPython cannot be started, the virtual environment is none for it, or
    /// a host exists already. Blocks: until the interpreter takes requests.
    explicit StandaloneHost(const HostOptions& options = {});

    /// Stops the interpreter and waits for its thread. Requests that still wait are failed; running code is
    /// interrupted.
    ~StandaloneHost();
    StandaloneHost(const StandaloneHost&) = delete;
    StandaloneHost& operator=(const StandaloneHost&) = delete;

    const std::shared_ptr<zvm::ZVM>& zvm() const;
    const std::shared_ptr<connector::ServiceFramework>& framework() const;
    const std::shared_ptr<connector::configuration::Configuration>& configuration() const;
    /// Null where the host was given a message service.
    const std::shared_ptr<messages::LocalMessageService>& messages() const;

    // What streaming evaluation works with; the gate is open while the interpreter is available.
    const std::shared_ptr<connector::message_service::MessageServiceFactory>& messageServiceFactory() const;
    const std::shared_ptr<connector::shadow_files::v1::ShadowService>& shadowService() const;
    const std::shared_ptr<connector::common::RequestGate>& requestGate() const;
    const std::shared_ptr<messages::RequestCounter>& requestCounter() const;

    /// For how long native code has kept the interpreter's lock, as far as is known from earlier calls of
    /// this, so that no interrupt reaches the code. Call it now and then, and only while a request runs
    /// (HostObserver). Threads: any; one at a time.  Blocks: no.
    std::chrono::milliseconds deafFor();

    /// The process's own standard input, output and error as they were before capture: file descriptors for
    /// the program itself to read and write. Valid as long as the host is.
    int standardInput() const;
    int standardOutput() const;
    int standardError() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace standalone
