#include "interpreters/settings.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>
#include <vector>

#include <Poco/JSON/Object.h>

#include "connector/configuration/settings.h"
#include "connector/identifiers.h"
#include "connector/json/parse.h"
#include "dispatch/members.h"

namespace gateway::interpreters {

namespace {

using dispatch::BadMessage;
using Poco::JSON::Object;
using Kind = dispatch::Member::Kind;

constexpr std::size_t longestId = 63;
constexpr std::size_t madeUpDigits = 8;

constexpr dispatch::Member members[] = {
    {"id", Kind::String},
    {"folder", Kind::String},
    {"venv", Kind::String},
    {"env", Kind::Object},
    {"set", Kind::Object},
    {.name = "memoryMiB", .kind = Kind::Integer, .most = std::int64_t{1} << 24},
    {.name = "cpus", .kind = Kind::Number, .most = 4096},
    {.name = "idleMinutes", .kind = Kind::Integer, .most = 525'600},
    {"ifWatched", Kind::Boolean},
    {"restart", Kind::String}};

constexpr std::array<std::pair<std::string_view, ports::RestartMode>, 3> restartModes = {
    {{"demand", ports::RestartMode::Demand},
     {"always", ports::RestartMode::Always},
     {"never", ports::RestartMode::Never}}};

bool isSmallLetter(char c) { return c >= 'a' && c <= 'z'; }

/// The member of the kind String; empty where it is missing.
std::string textIn(const Object& object, const std::string& name) {
    auto text = object.optValue<std::string>(name, "");
    if (text.find('\0') != std::string::npos) throw BadMessage(name + " must not contain a null character");
    return text;
}

std::filesystem::path folderIn(const Object& object, const std::string& name) {
    std::filesystem::path folder = textIn(object, name);
    if (!object.has(name)) return folder;
    if (!folder.is_absolute()) throw BadMessage(name + " must be an absolute path: " + folder.string());
    return folder;
}

std::map<std::string, std::string> configurationIn(const Object& object) {
    std::map<std::string, std::string> configuration;
    const auto values = object.getObject("set");
    for (const auto& key : values ? values->getNames() : std::vector<std::string>()) {
        if (!values->get(key).isString()) throw BadMessage("set." + key + " must be a string");
        configuration[key] = values->getValue<std::string>(key);
        try {
            connector::configuration::requireSetting(key, configuration[key]);
        } catch (const std::invalid_argument& problem) {
            throw BadMessage(std::string("set: ") + problem.what());
        }
    }
    return configuration;
}

std::map<std::string, std::string> environmentIn(const Object& object) {
    std::map<std::string, std::string> environment;
    const auto values = object.getObject("env");
    for (const auto& name : values ? values->getNames() : std::vector<std::string>()) {
        if (name.empty() || name.find_first_of(std::string_view("=\0", 2)) != std::string::npos) {
            throw BadMessage("env must have names of variables that are not empty and have no \"=\"");
        }
        if (!values->get(name).isString()) throw BadMessage("env." + name + " must be a string");
        environment[name] = textIn(*values, name);
    }
    return environment;
}

ports::RestartMode restartIn(const Object& object) {
    const auto text = object.optValue<std::string>("restart", "demand");
    const auto* const mode =
        std::ranges::find(restartModes, text, &decltype(restartModes)::value_type::first);
    if (mode == restartModes.end()) throw BadMessage(R"(restart must be "demand", "always" or "never")");
    return mode->second;
}

std::string idIn(const Object& object, const std::string& newId) {
    auto id = object.optValue<std::string>("id", newId);
    if (isInterpreterId(id)) return id;
    throw BadMessage("id must be 1 to 63 small letters, digits and -, of which the first is a letter");
}

}  // namespace

bool isInterpreterId(std::string_view text) {
    return !text.empty() && text.size() <= longestId && isSmallLetter(text.front()) &&
           std::ranges::all_of(text,
                               [](char c) { return isSmallLetter(c) || (c >= '0' && c <= '9') || c == '-'; });
}

std::string newInterpreterId() { return "i" + connector::randomIdentifier().substr(0, madeUpDigits); }

ports::InterpreterSpec readSpec(std::string_view json, const std::string& newId) {
    constexpr std::size_t deepest = 8;
    constexpr std::size_t mostValues = 5000;
    const auto value = connector::json::parse(json, deepest, mostValues);
    if (value.type() != typeid(Object::Ptr)) throw BadMessage("The body must be a JSON object.");
    const auto& object = *value.extract<Object::Ptr>();
    std::vector<std::string> unknown;
    dispatch::checkMembers(members, object, "", unknown);
    // A limit whose name is mistyped would not hold.
    if (!unknown.empty()) throw BadMessage(unknown.front() + " is not a known member");

    ports::InterpreterSpec spec;
    spec.worker.id = idIn(object, newId);
    spec.worker.folder = folderIn(object, "folder");
    spec.worker.venv = folderIn(object, "venv");
    spec.worker.env = environmentIn(object);
    spec.worker.memoryMiB = object.optValue<std::uint64_t>("memoryMiB", 0);
    spec.worker.cpus = object.optValue<double>("cpus", 0);
    spec.culling.idle = std::chrono::minutes(object.optValue<std::int64_t>("idleMinutes", 0));
    spec.culling.ifWatched = object.optValue<bool>("ifWatched", true);
    spec.restart = restartIn(object);
    spec.configuration = configurationIn(object);
    return spec;
}

void requireFolders(const supervisor::WorkerSpec& spec, const CheckVenv& checkVenv) {
    for (const auto& [name, folder] : {std::pair("folder", spec.folder), std::pair("venv", spec.venv)}) {
        std::error_code error;
        if (folder.empty() || std::filesystem::is_directory(folder, error)) continue;
        throw BadMessage(std::string(name) + " must be the path of an existing folder: " + folder.string());
    }
    if (!checkVenv || spec.venv.empty()) return;
    try {
        checkVenv(spec.venv);
    } catch (const std::runtime_error& problem) {
        throw BadMessage(std::string("venv: ") + problem.what());
    }
}

}  // namespace gateway::interpreters
