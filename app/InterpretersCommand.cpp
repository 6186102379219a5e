#include "InterpretersCommand.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

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

struct InterpretersOptions {
    bool json = false;
    std::string id;
    std::string folder;
    std::string venv;
    std::vector<std::string> environment;
    int memoryMiB = 0;
    double cpus = 0;
    int idleMinutes = 0;
    bool keepsWatched = false;
    std::string restart;
    SessionOptions session;
};

std::string rowOf(const std::string& id, const std::string& state, const std::string& life,
                  const std::string& memory, const std::string& death) {
    std::string row(id.size() + state.size() + life.size() + memory.size() + death.size() + 80, '\0');
    row.resize(
        static_cast<std::size_t>(std::snprintf(row.data(), row.size(), "%-16s %-18s %6s %10s  %s", id.c_str(),
                                               state.c_str(), life.c_str(), memory.c_str(), death.c_str())));
    row.resize(row.find_last_not_of(' ') + 1);
    return row + "\n";
}

int list(const InterpretersOptions& options) {
    const auto all = ServerRequests(options.session.server()).interpreters();
    std::string text = options.json ? "" : rowOf("ID", "STATE", "LIFE", "MEMORY", "LAST DEATH");
    for (unsigned i = 0; i < all->size(); ++i) {
        const auto info = all->getObject(i);
        text += options.json ? connector::json::written(info) + "\n"
                             : rowOf(textIn(*info, "id"), stateOf(*info), textIn(*info, "life"),
                                     memoryOf(*info), lastDeathOf(*info));
    }
    writeAll(STDOUT_FILENO, text);
    return 0;
}

Object::Ptr variablesOf(const std::vector<std::string>& assignments) {
    Object::Ptr variables = new Object;
    for (const auto& assignment : assignments) {
        requireUtf8("--env", assignment);
        const auto sign = assignment.find('=');
        if (sign == std::string::npos || sign == 0) throw InputError("--env must be NAME=VALUE");
        variables->set(assignment.substr(0, sign), assignment.substr(sign + 1));
    }
    return variables;
}

int create(const InterpretersOptions& options) {
    Object::Ptr wanted = new Object;
    const auto setText = [&](const char* name, const std::string& text) {
        requireUtf8(name, text);
        if (!text.empty()) wanted->set(name, text);
    };
    if (!options.id.empty()) requireInterpreter("ID", options.id);
    setText("id", options.id);
    setText("folder", options.folder);
    setText("venv", options.venv);
    setText("restart", options.restart);
    if (!options.environment.empty()) wanted->set("env", variablesOf(options.environment));
    if (options.memoryMiB > 0) wanted->set("memoryMiB", options.memoryMiB);
    if (options.cpus > 0) wanted->set("cpus", options.cpus);
    if (options.idleMinutes > 0) wanted->set("idleMinutes", options.idleMinutes);
    if (options.keepsWatched) wanted->set("ifWatched", false);
    const auto info = ServerRequests(options.session.server()).create(wanted);
    writeAll(STDOUT_FILENO,
             options.json ? connector::json::written(info) + "\n" : textIn(*info, "id") + "\n");
    return 0;
}

int remove(const InterpretersOptions& options) {
    requireInterpreter("ID", options.id);
    ServerRequests(options.session.server()).remove(options.id);
    return 0;
}

void addOptionsOfNew(CLI::App& command, InterpretersOptions& options) {
    command.add_option("ID", options.id, "Its id (default: the server makes one)");
    command.add_option("--folder", options.folder, "Its working directory, on the server")->type_name("DIR");
    command.add_option("--venv", options.venv, "The folder of a virtual environment, on the server")
        ->type_name("DIR");
    command
        .add_option("--env", options.environment, "A variable of its environment; may be given several times")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    addInteger(command, "--memory", options.memoryMiB, 1, 1 << 30, "Memory beyond which allocations fail")
        ->type_name("MIB");
    command.add_option("--cpus", options.cpus, "How many processors it may keep busy")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    addInteger(command, "--idle-minutes", options.idleMinutes, 1, 1 << 20,
               "End it when it was idle for so long")
        ->type_name("N");
    command.add_flag("--keep-watched", options.keepsWatched, "Not while somebody is subscribed to it");
    command.add_option("--restart", options.restart, "After a death: demand (the default), always or never")
        ->type_name("WHEN");
}

}  // namespace

void addInterpretersCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<InterpretersOptions>();
    CLI::App* interpreters =
        program.add_subcommand("interpreters", "List, create and delete a server's interpreters");
    interpreters->fallthrough();
    interpreters->require_subcommand(0, 1);
    interpreters->add_flag("--json", options->json, "Print each interpreter as one line of JSON");
    options->session.addServerTo(*interpreters);
    const auto run = [options, &command](int (*function)(const InterpretersOptions&)) {
        return
            [options, &command, function] { command = [options, function] { return function(*options); }; };
    };
    interpreters->callback([command = run(list), interpreters] {
        if (interpreters->get_subcommands().empty()) command();
    });
    interpreters->add_subcommand("list", "List them (the default)")->fallthrough()->callback(run(list));
    CLI::App* created = interpreters->add_subcommand("create", "Create one, and print its id");
    created->fallthrough()->callback(run(create));
    addOptionsOfNew(*created, *options);
    CLI::App* deleted = interpreters->add_subcommand("delete", "End one, and forget it");
    deleted->fallthrough()->callback(run(remove));
    deleted->add_option("ID", options->id, "Its id")->required();
}

}  // namespace app
