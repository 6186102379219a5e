#include "StatusCommand.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <Poco/JSON/Array.h>
#include <unistd.h>

#include "ServerRequests.h"
#include "SessionOptions.h"
#include "connector/json/write.h"
#include "interpreterInfo.h"
#include "terminal.h"

namespace app {

using Poco::JSON::Array;
using Poco::JSON::Object;

namespace {

struct StatusOptions {
    bool json = false;
    SessionOptions session;
};

std::string secondsOf(const Object& request) {
    const auto milliseconds = request.optValue<Poco::UInt64>("ms", 0);
    return std::to_string(milliseconds / 1000) + "." + std::to_string(milliseconds / 100 % 10) + " s";
}

std::string describe(const Object& info) {
    std::string text = "  " + textIn(info, "id") + ": " + stateOf(info) + "; life " + textIn(info, "life") +
                       ", " + memoryOf(info) + "\n";
    if (const auto request = info.getObject("request")) {
        text += "    has run " + textIn(*request, "type") + " " + textIn(*request, "uuid") + " for " +
                secondsOf(*request) + "\n";
    }
    if (textIn(info, "state") == "failed")
        text += "    it has died too often; 'numora restart' begins a new life\n";
    if (const auto death = lastDeathOf(info); !death.empty()) text += "    last death: " + death + "\n";
    if (textIn(info, "state") == "failed")
        text += "    has died too often to go on by itself; 'numora restart' begins a new life\n";
    return text;
}

int runStatus(const StatusOptions& options) {
    const ServerAddress address = options.session.server();
    ServerRequests server(address);
    const bool isReady = server.isReady();
    Array::Ptr interpreters = new Array;
    if (address.interpreter.empty()) {
        interpreters = server.interpreters();
    } else {
        interpreters->add(server.describe());
    }
    const std::string url = address.withoutInterpreter().url();
    std::string text = url + (isReady ? " takes requests\n" : " takes no requests\n");
    if (options.json) {
        Object::Ptr status = new Object;
        status->set("url", url);
        status->set("isReady", isReady);
        status->set("interpreters", interpreters);
        text = connector::json::written(status) + "\n";
    } else {
        for (unsigned i = 0; i < interpreters->size(); ++i) text += describe(*interpreters->getObject(i));
    }
    writeAll(STDOUT_FILENO, text);
    return isReady ? 0 : 1;
}

}  // namespace

void addStatusCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<StatusOptions>();
    CLI::App* status = program.add_subcommand(
        "status", "Tell whether a server takes requests, and what its interpreters do");
    status->fallthrough();
    status->add_flag("--json", options->json, "Print one line of JSON");
    options->session.addInterpreterTo(*status);
    status->callback([options, &command] { command = [options] { return runStatus(*options); }; });
}

}  // namespace app
