#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ServeLog.h"
#include "Workplace.h"
#include "gateway/Gateway.h"

namespace CLI {
class App;
}

namespace app {

/// What `numora serve` is told: by its flags, else by environment variables, else by a file.
struct ServeSettings {
    std::optional<std::string> host;
    std::optional<std::uint16_t> port;
    std::optional<std::string> token;
    std::optional<std::string> logLevel;
    std::optional<std::string> logFormat;
    std::optional<std::string> logFile;
    std::optional<std::string> accessLog;
    std::optional<std::string> console;
    std::optional<std::string> tlsCertificate;
    std::optional<std::string> tlsKey;
    std::vector<std::string> hosts;
    std::vector<std::string> origins;
    std::optional<std::string> basePath;
    std::vector<std::string> open;
    std::vector<std::string> trustedProxies;
    std::map<std::string, std::string> configuration;
    std::optional<std::size_t> connections;
    std::optional<std::size_t> bodyBytes;
    std::optional<std::size_t> handlerThreads;
    std::optional<std::size_t> handlerQueue;
    std::optional<std::size_t> ioThreads;
    std::optional<int> ownerWaitMs;
    std::optional<std::size_t> mostInterpreters;
    std::vector<gateway::TokenOptions> tokens;
    std::map<std::string, std::string> interpreters;  ///< by id, as GatewayOptions has them
    Workplace workplace;                              ///< of interpreters that name none
    std::optional<std::string> file;
    std::map<std::string, std::string> fileValues;  ///< what it sets, as text
    bool fileHasToken = false;
    bool mock = false;
    bool inProcess = false;

    /// Adds the flags and the environment variables to the command.
    void addTo(CLI::App& command);
    /// Has all paths lead to the same files in whatever folder the process works later: an interpreter in it
    /// may change that.
    void makeAbsolute();
    /// Reads `file`, if there is one, for what is not set yet.
    /// Throws: InputError, when it cannot be read or says what cannot be understood.
    void readFile();

    gateway::GatewayOptions gatewayOptions() const;
    /// What of them may change while the gateway serves; beside that the files of the log and its level may.
    gateway::ReloadableOptions reloadable() const;
    /// The names of the other settings that `file` and that of `next` do not set alike.
    std::vector<std::string> changedForStart(const ServeSettings& next) const;
    ServeLog::Files logFiles() const;
    foundation::log::Severity level() const {
        return foundation::log::severityFromName(logLevel.value_or("info"));
    }
    LogFormat format() const { return logFormatFrom("log_format", logFormat.value_or("text")); }
};

}  // namespace app
