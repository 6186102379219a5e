#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "connector/ServiceFramework.h"
#include "connector/common/RequestGate.h"
#include "connector/configuration/Configuration.h"
#include "connector/shadow_files/v1/ShadowService.h"
#include "messages/LocalMessageService.h"
#include "messages/RequestCounter.h"
#include "zvm/ZVM.h"

namespace standalone {

struct HostOptions {
    /// Size of the command window, in characters, for requests that do not say theirs.
    std::uint64_t columns = 80;
    std::uint64_t rows = 24;
    /// What native code and child processes write to file descriptors 1 and 2 is captured as interpreter
    /// output, and their standard input is empty.
    bool captureFileDescriptors = true;
    /// Initial configuration values.
    std::map<std::string, std::string> configuration;
    /// Where records of usage are kept, as lines of JSON. Empty: nowhere.
    std::string telemetryFile = {};
    messages::MessageServiceOptions messages = {};
};

/// A complete host of its own: an embedded CPython on a thread of its own, its request queue, events,
/// services and configuration.
///
/// One at a time in a process, and, because NumPy cannot be loaded twice, one in the life of a process.
/// Before it is made, the calling thread blocks SIGINT and SIGRTMIN with `blockInterpreterSignals`, so that
/// every thread made later does; only the interpreter thread takes them.
class StandaloneHost {
public:
    /// Starts the interpreter and installs the host.
    /// Throws: std::runtime_error, when CPython cannot be started or a host exists already.
    /// Blocks: until the interpreter takes requests.
    explicit StandaloneHost(const HostOptions& options = {});

    /// Stops the interpreter and waits for its thread. Requests that still wait are failed; running code is
    /// interrupted.
    ~StandaloneHost();
    StandaloneHost(const StandaloneHost&) = delete;
    StandaloneHost& operator=(const StandaloneHost&) = delete;

    const std::shared_ptr<zvm::ZVM>& zvm() const;
    const std::shared_ptr<connector::ServiceFramework>& framework() const;
    const std::shared_ptr<connector::configuration::Configuration>& configuration() const;
    const std::shared_ptr<messages::LocalMessageService>& messages() const;

    // What streaming evaluation works with; the gate is open while the interpreter is available.
    const std::shared_ptr<connector::message_service::MessageServiceFactory>& messageServiceFactory() const;
    const std::shared_ptr<connector::shadow_files::v1::ShadowService>& shadowService() const;
    const std::shared_ptr<connector::common::RequestGate>& requestGate() const;
    const std::shared_ptr<messages::RequestCounter>& requestCounter() const;

    /// The process's own standard input, output and error as they were before capture: file descriptors for
    /// the program itself to read and write. Valid as long as the host is.
    int standardInput() const;
    int standardOutput() const;
    int standardError() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// Blocks, for the calling thread and all that it starts, the signals that belong to the interpreter thread.
void blockInterpreterSignals();

/// Has `handler` called for each SIGINT that comes from outside this process, such as Ctrl-C at a terminal,
/// where it would interrupt the running code; null ends that. Code that sets a handler of its own for SIGINT
/// gets the signal while it runs.  Threads: it runs as a signal handler does, on any thread.
void setOutsideInterruptHandler(void (*handler)());

/// Opens /dev/null for those of the file descriptors 0 to 2 that are closed, lest their numbers fall to other
/// files. A host does it; a program that opens files before calls it first.
void openStandardStreams();

}  // namespace standalone
