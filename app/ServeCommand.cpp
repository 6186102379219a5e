#include "ServeCommand.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include <CLI/CLI.hpp>
#include <sys/resource.h>
#include <unistd.h>

#include "ServeBackend.h"
#include "ServeLog.h"
#include "ServeSettings.h"
#include "ServeSignals.h"
#include "ServeWarnings.h"
#include "StopDeadline.h"
#include "foundation/log/diagnostic_logger.h"
#include "gateway/Gateway.h"
#include "optionValues.h"
#include "terminal.h"
#include "text.h"

namespace app {

namespace {

namespace fs = std::filesystem;

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger instance("numora");
    return instance;
}

constexpr rlim_t otherFiles = 512;

// Every connection is an open file, also one whose client has gone while its request runs, and Python code
// needs some, too. Where the system allows fewer, there are fewer connections: without files, none is
// accepted.
void allowFiles(gateway::GatewayOptions& options) {
    auto& connections = options.limits.connections;
    const rlim_t wanted = connections + options.handlerThreads + options.handlerQueue + otherFiles;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) return;
    limit.rlim_cur = std::min(limit.rlim_max, wanted);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    connections = std::max<std::size_t>(1, connections * limit.rlim_cur / wanted);
}

std::unique_ptr<gateway::Gateway> startGateway(gateway::GatewayOptions options, ServeBackend& backend,
                                               const std::string& file) {
    backend.configure(options);
    try {
        auto gateway = std::make_unique<gateway::Gateway>(
            *backend.messages, backend.framework, backend.serializer,
            [&backend] { return backend.isReady(); }, std::move(options));
        gateway->start();
        return gateway;
    } catch (const std::invalid_argument& error) {
        const std::string problem = error.what();
        throw InputError(problem.starts_with("interpreters.") ? file + ": " + problem : problem);
    }
}

std::unique_ptr<ServeBackend> makeBackend(const ServeSettings& settings) {
    if (settings.mock) return makeMockBackend();
    return settings.inProcess ? makeInterpreterBackend(settings.workplace, settings.configuration)
                              : makeWorkerBackend(settings.workplace);
}

// Who has chosen the token knows it, and what is printed may be kept by others.
void announce(const gateway::Gateway& gateway, const ServeSettings& settings, int standardOutput) {
    const std::string token = settings.token ? "" : "?token=" + gateway.token();
    // At a terminal both would stand one below the other, and people would copy the one without the token.
    const bool isSeenTwice =
        ::isatty(STDERR_FILENO) == 1 && ::isatty(standardOutput) == 1 && !settings.logFiles().log;
    if (!isSeenTwice) log().info("Listening on " + gateway.url());
    writeAll(standardOutput, "Listening on " + gateway.url() + token + "\n");
}

// Whoever reads something else, such as a pipe, may wait for ever.
void requireFile(const std::optional<std::string>& name) {
    std::error_code unknown;
    if (!name || !fs::exists(*name, unknown) || fs::is_regular_file(*name, unknown)) return;
    throw InputError(*name + ": must be a regular file, to be read again");
}

// Everything is tried before anything is changed. `settings` are those of the start.
void reload(const ServeSettings& given, const ServeSettings& settings, gateway::Gateway& gateway,
            ServeLog& serveLog) {
    try {
        auto next = given;
        requireFile(next.file);
        next.readFile();
        requireFile(next.tlsCertificate);
        requireFile(next.tlsKey);
        const auto files = ServeLog::open(next.logFiles());
        gateway.reload(next.reloadable());
        serveLog.use(files);
        foundation::log::setLevel(next.level());
        log().info("Reloaded certificate, tokens and log" + (next.file ? ", settings of " + *next.file : ""));
        warnOfSettings(next);
        std::string names;
        for (const auto& name : settings.changedForStart(next)) names += (names.empty() ? "" : ", ") + name;
        if (!names.empty()) log().warning("Changed, but read at start only: " + names);
    } catch (const std::exception& error) {
        log().error("Reloading failed, and the old settings stay: " + std::string(error.what()));
    }
}

/// `given`: what flags and the environment say.
int serve(const ServeSettings& given, const ServeSettings& settings, const ServeSignals& signals,
          ServeLog& serveLog) {
    log().info("Numora Connector " NUMORA_VERSION " starts: process " + std::to_string(::getpid()) +
               (settings.file ? ", settings of " + *settings.file : ""));
    warnOfSettings(settings);
    auto options = settings.gatewayOptions();
    options.onAccess = [&serveLog](const auto& entry) { serveLog.noteAccess(entry); };
    options.isStopWanted = [&signals] { return signals.isStopWanted(); };
    allowFiles(options);
    auto backend = makeBackend(settings);
    serveLog.useStreams(backend->standardOutput(), backend->standardError());
    const auto messages = backend->messages;
    const auto gateway = startGateway(std::move(options), *backend, settings.file.value_or(""));
    if (!signals.isStopWanted()) announce(*gateway, settings, backend->standardOutput());
    auto signal = signals.wait();
    for (; !signal; signal = signals.wait()) reload(given, settings, *gateway, serveLog);
    log().info("Stopping on " + *signal);
    const StopDeadline deadline(backend->timeToStop());
    gateway->stop();
    // Before the gateway, into which what still runs may publish.
    backend.reset();
    return 0;
}

int runServe(ServeSettings& given) {
    given.makeAbsolute();
    auto settings = given;
    settings.readFile();
    settings.workplace.find();
    foundation::log::setLevel(settings.level());
    const ServeSignals signals(settings.inProcess && !settings.mock);
    ServeLog serveLog(settings.format());
    serveLog.use(ServeLog::open(settings.logFiles()));
    try {
        return serve(given, settings, signals, serveLog);
    } catch (const std::exception& error) {
        // On standard error the program tells it.
        if (settings.logFiles().log) log().error("The server ends: " + std::string(error.what()));
        throw;
    }
}

// Programs that code starts have no need to know a token, also not from where the system shows what the
// process was started with. The URL is for commands that use a server, and may hold one.
void forgetTokens() {
    for (const char* name : {"NUMORA_TOKEN", "NUMORA_URL"}) {
        if (char* value = std::getenv(name)) std::fill_n(value, std::strlen(value), '*');
        ::unsetenv(name);
    }
}

}  // namespace

void addServeCommand(CLI::App& program, std::function<int()>& command) {
    auto settings = std::make_shared<ServeSettings>();
    CLI::App* serve =
        program.add_subcommand("serve", "Let clients use an interpreter over HTTP and WebSocket");
    serve->fallthrough();
    settings->addTo(*serve);
    serve->callback([settings, &program, &command] {
        command = [settings, &program] {
            const auto* flag = program.get_option("--log-level");
            if (flag->count() > 0) {
                settings->logLevel = flag->as<std::string>();
            } else if (const char* level = std::getenv("NUMORA_LOG_LEVEL")) {
                requireLogLevel("NUMORA_LOG_LEVEL", level);
                settings->logLevel = level;
            }
            forgetTokens();
            return runServe(*settings);
        };
    });
}

}  // namespace app
