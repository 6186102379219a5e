#include "jupyter/rest/startKernel.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "connector/identifiers.h"
#include "connector/json/parse.h"
#include "dispatch/members.h"
#include "jupyter/rest/KernelSpecs.h"
#include "jupyter/rest/models.h"

namespace gateway::jupyter {

using dispatch::BadMessage;
using interpreters::Refusal;
using Poco::JSON::Object;

namespace {

constexpr const char* settings = "interpreter";  // the member that has what POST /interpreters takes

/// What the front end says of the place of its notebook counts where it is a place here, too.
void addEnvironment(ports::InterpreterSpec& spec, const Object& wish) {
    const auto environment = wish.getObject("env");
    if (!environment) return;
    for (const auto& name : environment->getNames()) {
        const auto value = textIn(*environment, name);
        const std::string text = name + value;
        if (name.empty() || name.find('=') != std::string::npos || text.find('\0') != std::string::npos) {
            throw BadMessage("env must have names of variables, and values without null characters");
        }
        spec.worker.env.try_emplace(name, value);
    }
    const auto folder = spec.worker.env.find("KERNEL_WORKING_DIR");
    if (!spec.worker.folder.empty() || folder == spec.worker.env.end()) return;
    std::error_code error;
    const std::filesystem::path path = folder->second;
    if (path.is_absolute() && std::filesystem::is_directory(path, error)) spec.worker.folder = path;
}

std::shared_ptr<interpreters::Desk> make(const Ask& ask, const Object& wish) {
    const auto given = wish.get(settings);
    const bool isGiven = given.type() == typeid(connector::json::Text);
    if (!isGiven && !given.isEmpty()) throw BadMessage("interpreter must be an object");
    auto spec = interpreters::readSpec(isGiven ? *given.extract<connector::json::Text>().json : "{}",
                                       freeIdFor(*ask.grant));
    addEnvironment(spec, wish);
    interpreters::requireFolders(spec.worker, ask.checkVenv);
    if (!ask.grant->covers(spec.worker.id)) {
        throw Refusal(403, "This token may not create the interpreter \"" + spec.worker.id + "\".");
    }
    auto desk = ask.interpreters.create(spec);
    desk->kernel().own();
    desk->port().start([](const auto&) {});  // its record tells when it does not
    return desk;
}

}  // namespace

Object::Ptr bodyOf(const Ask& ask) {
    constexpr std::size_t deepest = 8;
    constexpr std::size_t mostValues = 5000;
    if (ask.body.empty()) return new Object();
    const auto value = connector::json::parse(ask.body, deepest, mostValues, settings);
    if (value.isEmpty()) return new Object();
    if (value.type() != typeid(Object::Ptr)) throw BadMessage("The body must be a JSON object.");
    return value.extract<Object::Ptr>();
}

std::string textIn(const Object& object, const std::string& name) {
    const auto value = object.get(name);
    if (value.isEmpty()) return {};
    if (!value.isString()) throw BadMessage(name + " must be a string");
    return value.extract<std::string>();
}

std::shared_ptr<interpreters::Desk> startKernel(const Ask& ask, const Object& wish) {
    // Most notebooks name the kernel "python3", and pages "python", whoever runs them.
    static constexpr std::array<std::string_view, 5> known = {"", ownKernel, sharedKernel, "python3",
                                                              "python"};
    const auto name = textIn(wish, "name");
    if (std::ranges::find(known, name) == known.end()) {
        throw Refusal(404, "There is no kernelspec \"" + name + "\".");
    }
    if (ask.desk) return ask.desk;
    if (name != sharedKernel && mayMake(ask)) return make(ask, wish);
    auto desk = ask.interpreters.find(interpreters::Registry::defaultId);
    if (desk && ask.mayUse(*desk)) return desk;
    throw Refusal(403, "This token may neither create an interpreter nor use \"default\".");
}

std::string freeIdFor(const access::Grant& grant) {
    constexpr std::size_t digits = 8;
    const std::string random = connector::randomIdentifier().substr(0, digits);
    for (const std::string& name : grant.interpreters) {
        if (!name.ends_with('*')) continue;
        const std::string id = (name == "*" ? "kernel-" : name.substr(0, name.size() - 1)) + random;
        if (interpreters::isInterpreterId(id)) return id;
    }
    return {};
}

}  // namespace gateway::jupyter
