#include "ServeSettings.h"

#include <filesystem>
#include <limits>
#include <sstream>
#include <type_traits>
#include <utility>

#include <CLI/CLI.hpp>
#include <toml++/toml.h>

#include "text.h"

namespace app {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t mostThreads = 1000;
constexpr std::int64_t mostConnections = 1'000'000;

/// One file of settings, from which known keys are taken.
class SettingsFile {
public:
    explicit SettingsFile(const std::string& name) : name_(name), folder_(fs::path(name).parent_path()) {
        try {
            table_ = toml::parse_file(name);
        } catch (const toml::parse_error& error) {
            std::ostringstream place;
            place << error.source().begin;
            fail(std::string(error.description()) + " (" + place.str() + ")");
        }
    }

    void take(const char* key, std::optional<std::string>& setting) {
        if (const auto* const node = find(key)) {
            const auto value = node->value_exact<std::string>();
            if (!value) fail(std::string(key) + " is no text");
            if (!setting) setting = *value;
        }
    }
    /// A path is relative to the folder of the file.
    void takePath(const char* key, std::optional<std::string>& setting) {
        std::optional<std::string> path;
        take(key, path);
        if (path && !setting) setting = (folder_ / *path).string();
    }
    template <class Number>
    void take(const char* key, std::optional<Number>& setting, std::int64_t least, std::int64_t most) {
        if (const auto* const node = find(key)) {
            const auto value = node->value_exact<std::int64_t>();
            if (!value || *value < least || *value > most) {
                fail(std::string(key) + " is no number from " + std::to_string(least) + " to " +
                     std::to_string(most));
            }
            if (!setting) setting = static_cast<Number>(*value);
        }
    }
    void take(const char* key, std::vector<std::string>& setting) {
        const auto* const node = find(key);
        if (!node) return;
        if (!node->is_array()) fail(std::string(key) + " is no list");
        std::vector<std::string> values;
        for (const auto& element : *node->as_array()) {
            const auto value = element.value_exact<std::string>();
            if (!value) fail(std::string(key) + " is no list of texts");
            values.push_back(*value);
        }
        if (setting.empty()) setting = std::move(values);
    }
    /// To be called when all that is known has been taken.
    void refuseTheRest() const {
        for (const auto& entry : table_) fail("unknown key " + std::string(entry.first.str()));
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
    [[noreturn]] void fail(const std::string& reason) const { throw InputError(name_ + ": " + reason); }

    const std::string name_;
    const fs::path folder_;
    toml::table table_;
    toml::table taken_;
};

}  // namespace

void ServeSettings::addTo(CLI::App& command) {
    command.add_option("--host", host, "Address to listen on (127.0.0.1 unless told)")
        ->type_name("ADDRESS")
        ->envname("NUMORA_HOST");
    command.add_option("--port", port, "Port to listen on (8350 unless told); 0 picks a free one")
        ->type_name("PORT")
        ->envname("NUMORA_PORT");
    command.add_option("--token", token, "What clients have to show; on the loopback, one is made otherwise")
        ->type_name("TOKEN")
        ->envname("NUMORA_TOKEN");
    command.add_option("--config", file, "A TOML file with settings")
        ->type_name("FILE")
        ->envname("NUMORA_CONFIG");
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
    command.add_flag("--mock", mock, "Answer requests without an interpreter, always in the same way");
}

void ServeSettings::readFile() {
    if (!file) return;
    SettingsFile settings(*file);
    settings.take("host", host);
    settings.take("port", port, 0, std::numeric_limits<std::uint16_t>::max());
    settings.take("token", token);
    settings.take("log_level", logLevel);
    settings.takePath("console", console);
    settings.takePath("tls_cert", tlsCertificate);
    settings.takePath("tls_key", tlsKey);
    settings.take("hosts", hosts);
    settings.take("origins", origins);
    settings.take("connections", connections, 1, mostConnections);
    settings.take("body_bytes", bodyBytes, 1, std::int64_t{1} << 30);
    settings.take("handler_threads", handlerThreads, 1, mostThreads);
    settings.take("handler_queue", handlerQueue, 0, 1'000'000);
    settings.take("io_threads", ioThreads, 1, 64);
    settings.refuseTheRest();
}

gateway::GatewayOptions ServeSettings::gatewayOptions() const {
    gateway::GatewayOptions options;
    options.host = host.value_or(options.host);
    options.port = port.value_or(options.port);
    options.token = token.value_or("");
    options.hosts = hosts;
    options.origins = origins;
    options.console = console.value_or("");
    options.tlsCertificate = tlsCertificate.value_or("");
    options.tlsKey = tlsKey.value_or("");
    options.limits.connections = connections.value_or(options.limits.connections);
    options.limits.bodyBytes = bodyBytes.value_or(options.limits.bodyBytes);
    options.handlerThreads = handlerThreads.value_or(options.handlerThreads);
    options.handlerQueue = handlerQueue.value_or(options.handlerQueue);
    options.ioThreads = ioThreads.value_or(options.ioThreads);
    return options;
}

}  // namespace app
