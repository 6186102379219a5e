#include "ServeSettings.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <sstream>
#include <system_error>
#include <type_traits>
#include <utility>

#include <CLI/CLI.hpp>
#include <toml++/toml.h>

#include "LogFormat.h"
#include "connector/configuration/settings.h"
#include "optionValues.h"
#include "standalone/virtualEnvironment.h"
#include "text.h"

namespace app {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t highestPort = std::numeric_limits<std::uint16_t>::max();
constexpr std::int64_t mostThreads = 1000;
constexpr std::int64_t mostConnections = 1'000'000;
constexpr std::int64_t longestOwnerWaitMs = 3'600'000;
constexpr std::int64_t mostInterpretersEver = 1000;
constexpr std::size_t sha256Digits = 64;
constexpr std::size_t longestId = 63;
constexpr const char* streamName = "-";  ///< instead of a file for a log

/// What is wrong with a value of the configuration; empty: nothing.
std::string settingProblem(const std::string& key, const std::string& value) {
    try {
        connector::configuration::requireSetting(key, value);
        return {};
    } catch (const std::invalid_argument& problem) {
        return problem.what();
    }
}

/// One file of settings, from which known keys are taken.
class SettingsFile {
public:
    explicit SettingsFile(const std::string& name) : name_(name), folder_(fs::path(name).parent_path()) {
        std::error_code unknown;
        if (fs::is_directory(name, unknown)) fail("is a folder, not a file");
        std::ifstream file(name);
        if (!file) fail("cannot be read: " + std::generic_category().message(errno));
        try {
            table_ = toml::parse(file, name);
        } catch (const toml::parse_error& error) {
            std::ostringstream place;
            place << error.source().begin;
            fail(std::string(error.description()) + " (" + place.str() + ")");
        }
    }

    void take(const char* key, std::optional<std::string>& setting) {
        if (const auto* const node = find(key)) {
            const auto value = node->value_exact<std::string>();
            if (!value) fail(std::string(key) + " must be a string");
            if (!setting) setting = *value;
        }
    }
    /// What it sets, as text.
    std::map<std::string, std::string> values() const {
        std::map<std::string, std::string> values;
        for (const auto& [key, value] : table_) {
            toml::table one;
            one.insert_or_assign(key, value);
            std::ostringstream text;
            text << toml::json_formatter(one);
            values.emplace(key.str(), text.str());
        }
        return values;
    }
    /// A path is relative to the folder of the file, but for `stream`, and an empty one not set.
    void takePath(const char* key, std::optional<std::string>& setting, const std::string& stream = {}) {
        std::optional<std::string> path;
        take(key, path);
        if (path && !path->empty() && !setting) {
            setting = *path == stream ? *path : (folder_ / *path).string();
        }
    }
    template <class Number>
    void take(const char* key, std::optional<Number>& setting, std::int64_t least, std::int64_t most) {
        if (const auto* const node = find(key)) {
            const auto value = node->value_exact<std::int64_t>();
            if (!value || *value < least || *value > most) {
                fail(std::string(key) + " must be an integer between " + std::to_string(least) + " and " +
                     std::to_string(most));
            }
            if (!setting) setting = static_cast<Number>(*value);
        }
    }
    void take(const char* key, std::vector<std::string>& setting) {
        const auto* const node = find(key);
        if (!node) return;
        const std::string problem = std::string(key) + " must be an array of strings";
        if (!node->is_array()) fail(problem);
        std::vector<std::string> values;
        for (const auto& element : *node->as_array()) {
            const auto value = element.value_exact<std::string>();
            if (!value) fail(problem);
            values.push_back(*value);
        }
        if (setting.empty()) setting = std::move(values);
    }
    /// The table `[set]`, whose keys may have their dots without quotes.
    void takeConfiguration(std::map<std::string, std::string>& configuration) {
        const auto* const node = find("set");
        if (!node) return;
        if (!node->is_table()) fail("set must be a table");
        takeValues(*node->as_table(), "", configuration);
    }
    /// The tables `[[tokens]]`.
    void takeTokens(std::vector<gateway::TokenOptions>& tokens) {
        const auto* const node = find("tokens");
        if (!node) return;
        if (!node->is_array_of_tables()) fail("tokens must be tables, each under [[tokens]]");
        for (const auto& element : *node->as_array()) {
            tokens.push_back(
                tokenFrom(*element.as_table(), "tokens[" + std::to_string(tokens.size()) + "]."));
        }
    }
    /// The tables `[interpreters.ID]`, which the gateway checks.
    void takeInterpreters(std::map<std::string, std::string>& interpreters) {
        const auto* const node = find("interpreters");
        if (!node) return;
        if (!node->is_table()) fail("interpreters must be tables, each under [interpreters.ID]");
        for (const auto& [id, value] : *node->as_table()) {
            const std::string name = "interpreters." + std::string(id.str());
            if (!value.is_table()) fail(name + " must be a table");
            auto table = *value.as_table();
            if (table.contains("id")) fail(name + ".id is not a known setting");
            table.insert("id", id.str());
            for (const char* key : {"folder", "venv"}) {
                const auto path = table[key].value_exact<std::string>();
                if (path)
                    table.insert_or_assign(key, fs::absolute(folder_ / *path).lexically_normal().string());
            }
            std::ostringstream json;
            json << toml::json_formatter(table);
            interpreters.emplace(id.str(), json.str());
        }
    }
    /// To be called when all that is known has been taken.
    void refuseUnknownKeys() const {
        for (const auto& entry : table_) fail(std::string(entry.first.str()) + " is not a known setting");
    }

private:
    // What is found is taken out.
    const toml::node* find(const char* key) {
        const auto at = table_.find(key);
        if (at == table_.end()) return nullptr;
        taken_.insert_or_assign(key, std::move(at->second));
        table_.erase(at);
        return taken_.get(key);
    }
    gateway::TokenOptions tokenFrom(const toml::table& table, const std::string& path) const {
        const auto strings = [&](const char* key) {
            std::vector<std::string> values;
            const auto* const array = table[key].as_array();
            for (std::size_t i = 0; array && i < array->size(); ++i) {
                values.push_back((*array)[i].value_exact<std::string>().value_or(""));
            }
            return values;
        };
        gateway::TokenOptions token{.sha256 = table["sha256"].value_exact<std::string>().value_or(""),
                                    .interpreters = strings("interpreters"),
                                    .rights = strings("rights")};
        std::ranges::transform(token.sha256, token.sha256.begin(),
                               [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (token.sha256.size() != sha256Digits ||
            token.sha256.find_first_not_of("0123456789abcdef") != std::string::npos) {
            fail(path + "sha256 must be the 64 hexadecimal digits of the SHA-256 of a token");
        }
        if (token.interpreters.empty() || !std::ranges::all_of(token.interpreters, isNameOfInterpreters)) {
            fail(path + "interpreters must be an array of ids, which may end with *");
        }
        const auto isRight = [](const std::string& right) {
            return right == "use" || right == "restart" || right == "create";
        };
        if (token.rights.empty() || !std::ranges::all_of(token.rights, isRight)) {
            fail(path + R"(rights must be an array of "use", "restart" and "create")");
        }
        for (const auto& [key, value] : table) {
            if (key != "sha256" && key != "interpreters" && key != "rights") {
                fail(path + std::string(key.str()) + " is not a known setting");
            }
        }
        return token;
    }
    void takeValues(const toml::table& table, const std::string& prefix,
                    std::map<std::string, std::string>& values) const {
        for (const auto& [name, node] : table) {
            const auto key = prefix + std::string(name.str());
            if (const auto* inner = node.as_table()) {
                takeValues(*inner, key + ".", values);
                continue;
            }
            const auto value = node.value_exact<std::string>();
            if (!value) fail("set: " + key + " must be a string");
            if (const auto problem = settingProblem(key, *value); !problem.empty()) fail("set: " + problem);
            values.emplace(key, *value);
        }
    }
    static bool isNameOfInterpreters(std::string_view name) {
        if (name.empty()) return false;
        if (name.ends_with('*')) name.remove_suffix(1);
        return name.size() <= longestId && std::ranges::all_of(name, [](char c) {
                   return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
               });
    }
    [[noreturn]] void fail(const std::string& reason) const { throw InputError(name_ + ": " + reason); }

    const std::string name_;
    const fs::path folder_;
    toml::table table_;
    toml::table taken_;
};

// Where the build and the installation put it; empty where there is none.
fs::path consoleBesideProgram() {
    std::error_code error;
    const auto folder =
        fs::read_symlink("/proc/self/exe", error).parent_path().parent_path() / "share/numora/console";
    return fs::exists(folder / "index.html", error) ? folder : fs::path();
}

}  // namespace

void ServeSettings::addTo(CLI::App& command) {
    command.add_option("--host", host, "Address to listen on (default: 127.0.0.1)")
        ->type_name("ADDRESS")
        ->envname("NUMORA_HOST");
    addInteger(command, "--port", port, 0, highestPort,
               "Port to listen on (default: 8350); 0 picks a free one", "NUMORA_PORT")
        ->type_name("PORT");
    command
        .add_option_function<std::string>(
            "--token",
            [this](const std::string& given) {
                if (given.empty()) throw CLI::ValidationError("--token must not be empty");
                token = given;
            },
            "The token that clients must show; on the loopback interface one is generated by default")
        ->type_name("TOKEN")
        ->envname("NUMORA_TOKEN");
    command.add_option("--config", file, "A TOML file with settings")
        ->type_name("FILE")
        ->envname("NUMORA_CONFIG");
    command
        .add_option_function<std::string>(
            "--log-format",
            [this](const std::string& name) {
                logFormatFrom(nameOf("--log-format", "NUMORA_LOG_FORMAT", name), name);
                logFormat = name;
            },
            "How the lines of the log look: text (the default) or json")
        ->type_name("FORMAT")
        ->envname("NUMORA_LOG_FORMAT");
    command
        .add_option("--log-file", logFile,
                    "The file that the log is appended to; - is standard error (the default)")
        ->type_name("FILE")
        ->envname("NUMORA_LOG_FILE");
    command
        .add_option("--access-log", accessLog,
                    "The file that a line for each request is appended to; - is standard output")
        ->type_name("FILE")
        ->envname("NUMORA_ACCESS_LOG");
    command.add_option("--console", console, "The folder with the files of the browser console")
        ->type_name("DIR")
        ->envname("NUMORA_CONSOLE");
    command.add_option("--tls-cert", tlsCertificate, "Certificate in PEM, for HTTPS")
        ->type_name("FILE")
        ->envname("NUMORA_TLS_CERT");
    command.add_option("--tls-key", tlsKey, "Its key in PEM")->type_name("FILE")->envname("NUMORA_TLS_KEY");
    command.add_option("--allow-host", hosts, "A further name of this server, as clients write it")
        ->type_name("NAME")
        ->allow_extra_args(false);
    command.add_option("--allow-origin", origins, "An origin whose pages may use this server")
        ->type_name("ORIGIN")
        ->allow_extra_args(false);
    command
        .add_option("--base-path", basePath,
                    "What stands before all paths of the server, such as /numora, where a proxy passes it on")
        ->type_name("PATH")
        ->envname("NUMORA_BASE_PATH");
    command
        .add_option("--trust-proxy", trustedProxies,
                    "A proxy, or a network of them, that is believed when it says for whom a request is")
        ->type_name("ADDRESS")
        ->allow_extra_args(false);
    command.add_option("--open", open, "Serve readyz or metrics without a token")
        ->type_name("NAME")
        ->allow_extra_args(false);
    command
        .add_option_function<std::vector<std::string>>(
            "--set",
            [this](const std::vector<std::string>& given) {
                for (const auto& text : given) {
                    const auto sign = std::min(text.find('='), text.size());
                    if (sign == text.size()) throw CLI::ValidationError("--set must be KEY=VALUE");
                    const auto key = text.substr(0, sign), value = text.substr(sign + 1);
                    const auto problem = settingProblem(key, value);
                    if (!problem.empty()) throw CLI::ValidationError("--set: " + problem);
                    configuration[key] = value;
                }
            },
            "A value that the configuration of interpreters begins with")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
    addInteger(command, "--owner-wait", ownerWaitMs, 0, longestOwnerWaitMs,
               "How long streamed code waits for its client when that takes nothing of the output, in "
               "milliseconds (default: 2000); 0: code never waits",
               "NUMORA_OWNER_WAIT")
        ->type_name("MS");
    workplace.addTo(command);
    command.add_flag("--in-process", inProcess,
                     "Run the interpreter in the process of the server, which then ends with it");
    command.add_flag("--mock", mock, "Answer requests without an interpreter, always in the same way");
}

void ServeSettings::makeAbsolute() {
    for (auto* path : {&file, &console, &tlsCertificate, &tlsKey, &logFile, &accessLog}) {
        const bool isStream = *path == streamName && (path == &logFile || path == &accessLog);
        if (*path && !(*path)->empty() && !isStream) *path = fs::absolute(**path).string();
    }
}

void ServeSettings::readFile() {
    if (!file) return;
    SettingsFile settings(*file);
    fileValues = settings.values();
    settings.take("host", host);
    settings.take("port", port, 0, highestPort);
    std::optional<std::string> ofFile;
    settings.take("token", ofFile);
    fileHasToken = ofFile && !ofFile->empty();
    if (!token && fileHasToken) token = ofFile;
    std::optional<std::string> level;
    settings.take("log_level", level);
    if (level) requireLogLevel(*file + ": log_level", *level);
    if (!logLevel) logLevel = level;
    std::optional<std::string> format;
    settings.take("log_format", format);
    if (format) logFormatFrom(*file + ": log_format", *format);
    if (!logFormat) logFormat = format;
    settings.takePath("log_file", logFile, streamName);
    settings.takePath("access_log", accessLog, streamName);
    settings.takePath("console", console);
    settings.takePath("tls_cert", tlsCertificate);
    settings.takePath("tls_key", tlsKey);
    settings.take("hosts", hosts);
    settings.take("origins", origins);
    settings.take("base_path", basePath);
    settings.take("open", open);
    settings.take("trusted_proxies", trustedProxies);
    settings.takeConfiguration(configuration);
    settings.take("connections", connections, 1, mostConnections);
    settings.take("body_bytes", bodyBytes, 1, std::int64_t{1} << 30);
    settings.take("handler_threads", handlerThreads, 1, mostThreads);
    settings.take("handler_queue", handlerQueue, 0, 1'000'000);
    settings.take("io_threads", ioThreads, 1, 64);
    settings.take("owner_wait", ownerWaitMs, 0, longestOwnerWaitMs);
    settings.take("max_interpreters", mostInterpreters, 1, mostInterpretersEver);
    settings.takeTokens(tokens);
    settings.takeInterpreters(interpreters);
    settings.refuseUnknownKeys();
}

gateway::ReloadableOptions ServeSettings::reloadable() const {
    return {.token = token.value_or(""),
            .tokens = tokens,
            .tlsCertificate = tlsCertificate.value_or(""),
            .tlsKey = tlsKey.value_or("")};
}

ServeLog::Files ServeSettings::logFiles() const {
    return {.log = logFile == streamName ? std::nullopt : logFile, .access = accessLog};
}

std::vector<std::string> ServeSettings::changedForStart(const ServeSettings& next) const {
    static const std::set<std::string> reloadable = {"access_log", "log_file", "log_level", "tls_cert",
                                                     "tls_key",    "token",    "tokens"};
    std::vector<std::pair<std::string, std::string>> different;
    std::ranges::set_symmetric_difference(fileValues, next.fileValues, std::back_inserter(different));
    std::set<std::string> names;
    for (const auto& [name, value] : different) {
        if (!reloadable.contains(name)) names.insert(name);
    }
    return {names.begin(), names.end()};
}

gateway::GatewayOptions ServeSettings::gatewayOptions() const {
    gateway::GatewayOptions options;
    options.host = host.value_or(options.host);
    options.port = port.value_or(options.port);
    options.token = token.value_or("");
    options.hosts = hosts;
    options.origins = origins;
    options.basePath = basePath.value_or("");
    options.open = open;
    options.trustedProxies = trustedProxies;
    options.configuration = configuration;
    options.console = console ? fs::path(*console) : consoleBesideProgram();
    options.tlsCertificate = tlsCertificate.value_or("");
    options.tlsKey = tlsKey.value_or("");
    options.limits.connections = connections.value_or(options.limits.connections);
    options.limits.bodyBytes = bodyBytes.value_or(options.limits.bodyBytes);
    options.handlerThreads = handlerThreads.value_or(options.handlerThreads);
    options.handlerQueue = handlerQueue.value_or(options.handlerQueue);
    options.ioThreads = ioThreads.value_or(options.ioThreads);
    options.tokens = tokens;
    options.interpreters = interpreters;
    options.mostInterpreters = mostInterpreters.value_or(options.mostInterpreters);
    options.checkVenv = [](const fs::path& folder) { standalone::programOf(folder.string()); };
    if (ownerWaitMs) options.ownerWait = std::chrono::milliseconds(*ownerWaitMs);
    return options;
}

}  // namespace app
