#include "DeathsCommand.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "ServerRequests.h"
#include "SessionOptions.h"
#include "connector/json/write.h"
#include "interpreterInfo.h"
#include "optionValues.h"
#include "terminal.h"
#include "text.h"

namespace app {

using Poco::JSON::Object;

namespace {

constexpr int mostDeaths = 10;  // the server keeps no more

struct DeathsOptions {
    int most = mostDeaths;
    bool json = false;
    SessionOptions session;
};

/// A heading and the lines of a text, indented; nothing for an empty text.
std::string section(const std::string& heading, std::string_view text) {
    if (text.empty()) return "";
    std::string lines = "  " + heading + ":\n";
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size() - 1) + 1;
        lines += "    " + std::string(text.substr(0, end));
        text.remove_prefix(end);
    }
    return withFinalNewline(lines);
}

std::string describe(const Object& record) {
    std::string text = textIn(record, "ended") + "  " + textIn(record, "sentence") + "\n";
    text += "  life " + textIn(record, "life") + ", process " + textIn(record, "pid") + ", started " +
            textIn(record, "started") + ", requests under way: " + textIn(record, "inFlight") +
            ", peak memory: " + std::to_string(record.optValue<Poco::UInt64>("peakMemoryBytes", 0) >> 20) +
            " MiB\n";
    if (const auto request = record.getObject("request")) {
        text += section("Last request, " + textIn(*request, "type") + " " + textIn(*request, "uuid"),
                        textIn(*request, "code"));
    }
    return text + section("Printed last", textIn(record, "output")) +
           section("Written last by native code", textIn(record, "rest")) +
           section("Threads", textIn(record, "trace"));
}

int runDeaths(const DeathsOptions& options) {
    const auto records = ServerRequests(options.session.server()).deaths();
    const auto count = std::min(records->size(), static_cast<std::size_t>(options.most));
    for (std::size_t i = 0; i < count; ++i) {
        const auto record = records->getObject(static_cast<unsigned>(i));
        writeAll(STDOUT_FILENO, options.json ? connector::json::written(record) + "\n"
                                             : (i > 0 ? "\n" : "") + describe(*record));
    }
    return 0;
}

}  // namespace

void addDeathsCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<DeathsOptions>();
    CLI::App* deaths =
        program.add_subcommand("deaths", "Tell how a server's interpreter has died, the last time first");
    deaths->fallthrough();
    addInteger(*deaths, "-n", options->most, 1, mostDeaths, "Tell of the last N deaths only")->type_name("N");
    deaths->add_flag("--json", options->json, "Print each record as one line of JSON");
    options->session.addInterpreterTo(*deaths);
    deaths->callback([options, &command] { command = [options] { return runDeaths(*options); }; });
}

}  // namespace app
