#include "jupyter/rest/KernelSpecs.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "connector/json/ObjectBuilder.h"
#include "jupyter/logo.h"
#include "jupyter/rest/models.h"
#include "jupyter/rest/startKernel.h"

namespace gateway::jupyter {

using connector::json::ObjectBuilder;

namespace {

std::string specOf(const Ask& ask, const std::string& name, std::string_view title) {
    const auto spec = ObjectBuilder()
                          .addJson("argv", "[]")
                          .addJson("env", "{}")
                          .add("display_name", title)
                          .add("language", "python")
                          .add("interrupt_mode", "message")
                          .addJson("metadata", R"({"debugger":false})");
    const auto resources =
        ObjectBuilder().add("logo-64x64", ask.root + "/kernelspecs/" + name + "/logo-64x64.png");
    return ObjectBuilder().add("name", name).add("spec", spec).add("resources", resources).take();
}

std::string ownSpec(const Ask& ask) { return specOf(ask, ownKernel, "Numora"); }
std::string sharedSpec(const Ask& ask) { return specOf(ask, sharedKernel, "Numora (shared workspace)"); }

bool isKnown(const std::string& name) { return name == ownKernel || name == sharedKernel; }

HttpReply noSuchSpec(const std::string& name) {
    return errorReply(404, "There is no kernelspec \"" + name + "\".");
}

}  // namespace

bool mayMake(const Ask& ask) {
    return ask.canMake && !ask.desk && ask.grant->has(access::Right::Create) &&
           ask.grant->has(access::Right::Use) && !freeIdFor(*ask.grant).empty();
}

void kernelSpecs(const Ask& ask, Done done) {
    const bool hasOwn = mayMake(ask);
    ObjectBuilder specs;
    if (hasOwn) specs.addJson(ownKernel, ownSpec(ask));
    specs.addJson(sharedKernel, sharedSpec(ask));
    done({.body = ObjectBuilder()
                      .add("default", hasOwn ? ownKernel : sharedKernel)
                      .add("kernelspecs", specs)
                      .take()});
}

void kernelSpec(const Ask& ask, Done done) {
    if (!isKnown(ask.parameter)) return done(noSuchSpec(ask.parameter));
    done({.body = ask.parameter == ownKernel ? ownSpec(ask) : sharedSpec(ask)});
}

void logo(const Ask& ask, Done done) {
    if (!isKnown(ask.parameter)) return done(noSuchSpec(ask.parameter));
    done({.body = std::string(::jupyter::logo64), .contentType = "image/png"});
}

}  // namespace gateway::jupyter
