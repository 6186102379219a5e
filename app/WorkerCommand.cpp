#include "WorkerCommand.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "WorkerProcess.h"
#include "WorkerStatus.h"
#include "Workplace.h"
#include "connector/configuration/settings.h"
#include "connector/interpreter/Module.h"
#include "connector/json/JsonSerializer.h"
#include "foundation/log/diagnostic_logger.h"
#include "services/window.h"
#include "standalone/StandaloneHost.h"
#include "worker/Link.h"

namespace app {

namespace {

constexpr auto timeToSend = std::chrono::milliseconds(500);
constexpr auto interruptInterval = std::chrono::milliseconds(100);
constexpr int interruptsOfStreams = 10;

/// Has the log go over the link while it exists.
class LogOverLink {
public:
    explicit LogOverLink(const std::shared_ptr<worker::Link>& link)
        : previous_(foundation::log::setWriter([link](const auto& record) {
              link->tellLog(static_cast<std::uint64_t>(record.severity), record.logger, record.text);
          })) {}
    ~LogOverLink() { foundation::log::setWriter(previous_); }
    LogOverLink(const LogOverLink&) = delete;
    LogOverLink& operator=(const LogOverLink&) = delete;

private:
    const foundation::log::LogWriter previous_;
};

void useLogLevel(std::uint64_t severity) {
    foundation::log::setLevel(static_cast<foundation::log::Severity>(std::min(severity, std::uint64_t{3})));
}

standalone::HostOptions hostOptions(const WorkerProcess& process, const links::Start& start,
                                    worker::Link& link, WorkerStatus& status) {
    standalone::HostOptions options;
    if (start.columns > 0) options.columns = start.columns;
    if (start.rows > 0) options.rows = start.rows;
    options.messageService = link.messages();
    options.capturePipes = process.pipes();
    options.virtualEnvironment = start.venv;
    options.traceDescriptor = process.trace();
    options.observer = &status;
    options.configuration = start.configuration;
    // More than a process asks for: an answer to a question of an earlier one is for none of this.
    constexpr int promptsOfALife = 20;  // bits
    if (start.life > 0) options.promptsBefore = (start.life - 1) << promptsOfALife;
    return options;
}

// While there is a service yet that tells their clients.
void endStreams(standalone::StandaloneHost& host) {
    for (int i = 0; i < interruptsOfStreams; ++i) {
        if (host.requestCounter()->waitUntilIdle(interruptInterval)) return;
        host.zvm()->interrupt();
    }
}

void serve(standalone::StandaloneHost& host, worker::Link& link) {
    const auto serializer = std::make_shared<connector::json::JsonSerializer>();
    const connector::interpreter::Module module({.framework = host.framework(),
                                                 .configuration = host.configuration(),
                                                 .serializer = serializer,
                                                 .zvm = host.zvm(),
                                                 .messageServiceFactory = host.messageServiceFactory(),
                                                 .shadowService = host.shadowService(),
                                                 .requestGate = host.requestGate(),
                                                 .requestTracker = host.requestCounter()});
    link.serve(
        {.framework = host.framework(),
         .serializer = serializer,
         .isReadingInput =
             [&host] {
                 return host.requestGate()->isOpen() && services::prompt::detail::isInCharBufferMode();
             },
         .dequeMode =
             [&host] { return host.configuration()->getText(connector::configuration::dequeModeKey, ""); }});
    link.awaitStop();
    link.stop();
    endStreams(host);
}

void endBecauseOfLink(bool isGatewayGone) {
    if (isGatewayGone) WorkerProcess::endGroup();
    WorkerProcess::endForLink();
}

int runWorker() {
    const WorkerProcess process;
    standalone::blockInterpreterSignals();
    WorkerStatus status(process.blackBox());
    const auto link =
        std::make_shared<worker::Link>(worker::Link::Options{.main = process.main(),
                                                             .control = process.control(),
                                                             .broken = endBecauseOfLink,
                                                             .status = [&status] { return status.pong(); },
                                                             .setLogLevel = useLogLevel});
    status.setTellState([&link = *link](std::string_view state) { link.tellState(state); });
    const LogOverLink log(link);
    try {
        const auto start =
            link->greet({.build = NUMORA_VERSION, .pid = static_cast<std::uint64_t>(::getpid())});
        useLogLevel(start.logLevel);
        Workplace(start.venv, start.folder).enter();
        standalone::StandaloneHost host(hostOptions(process, start, *link, status));
        status.setDeafFor([&host] { return host.deafFor(); });
        serve(host, *link);
    } catch (const std::exception& error) {
        link->tellLog(static_cast<std::uint64_t>(foundation::log::Severity::Error), "worker", error.what());
        link->flush(timeToSend);
        throw;  // to standard error, which the supervisor reads
    }
    link->flush(timeToSend);
    return 0;
}

}  // namespace

void addWorkerCommand(CLI::App& program, std::function<int()>& command) {
    program.add_subcommand("worker", "")->group("")->callback([&command] { command = runWorker; });
}

}  // namespace app
