#pragma once

/// What clients ask for of interpreters as such, over HTTP: docs/interpreters.md. Rights for the interpreter
/// of a path are judged before.  Threads: any.

#include <functional>
#include <memory>
#include <string>

#include "HttpReply.h"
#include "access/Grant.h"
#include "interpreters/Registry.h"
#include "interpreters/settings.h"

namespace gateway::interpreters {

using Done = std::function<void(HttpReply)>;

/// Those that `grant` lets its owner use.
HttpReply list(const Registry& registry, const access::Grant& grant);
HttpReply describe(const Desk& desk);
HttpReply create(Registry& registry, const access::Grant& grant, const std::string& body,
                 const CheckVenv& checkVenv);
/// Answers when it has stopped.
void remove(Registry& registry, const std::string& id, Done done);
/// Answers when the new process takes requests.
void restart(const std::shared_ptr<Desk>& desk, const std::string& body, Done done);
HttpReply deaths(const Desk& desk);

}  // namespace gateway::interpreters
